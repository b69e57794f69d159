#pragma once
#include "Tessarin/Export.h"
#include <optional>
#include <string_view>

namespace Tessarin {

class NSDate;

/// The two forms in which dates travel between programs, read by hand: some fifty times as fast as a general formatter and
/// stricter. Names are English whatever the locale; a field out of its range, a wrong weekday or anything left over gives
/// an absent date.
class TESSARIN_API NSDateParsing {
    friend class NSDate; // only NSDate can carry this room
    constexpr NSDateParsing() noexcept = default;

public:
    /// "2015-03-01T12:30:00.250+0100"; the zone may also read "+01:00" or "Z". Exactly three digits of a second.
    static std::optional<NSDate> dateWithISO8601Text(std::string_view text);
    /// "Sun, 01 Mar 2015 12:30:00 GMT"; the zone may also read "+0100", "GMT+01:00", UTC, or one of the zones of the United
    /// States such as "EST" and "PDT".
    static std::optional<NSDate> dateWithRFC822Text(std::string_view text);

protected:
    ~NSDateParsing() = default;
};

} // namespace Tessarin
