#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/time/NSDateFormatterStyle.h"
#include <string>

namespace Tessarin {

class NSDate;

/// Intervals as text for people.
///
///     label = NSDate::ageString(-mail.date().timeIntervalSinceNow(), NSDateFormatterStyle::Long); // "3 days"
class TESSARIN_API NSDateAges {
    friend class NSDate; // only NSDate can carry this room
    constexpr NSDateAges() noexcept = default;

public:
    /// The interval in its largest unit, rounded down, without its sign: "5m" (Short, and any unknown style), "5 m" (Medium),
    /// "5 min" (Long), "5 minutes" or "1 minute" (Full), nothing (No). Less than a second is "now" in every style. A month has
    /// 30 days and a year 360. The words are looked up in the main bundle, docs/dates.md has their keys. Fatal for what is not
    /// a number or does not fit 64 bits, the smallest of these included.
    static std::string ageString(double seconds, NSDateFormatterStyle style = NSDateFormatterStyle::Short);

    /// "3 days ago" for an age, "in 3 days" for a negative one, "now": the largest unit as above, in the user's language and with
    /// its plural forms, without any table of the application. Full and Long write it out, Medium and Short abbreviate it as the
    /// language does ("3 mo. ago"); No is empty. Fatal for the same numbers.
    static std::string relativeAgeString(double seconds, NSDateFormatterStyle style = NSDateFormatterStyle::Full);

    /// The exact distance, "12.345678 s": the shortest text that reads back, of which digits after the twelfth character are cut
    /// off, exponents included.
    std::string durationStringRelativeTo(NSDate const& other) const;

protected:
    ~NSDateAges() = default;
};

} // namespace Tessarin
