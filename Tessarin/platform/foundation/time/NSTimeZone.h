#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

class TimeZoneTable;

/// The clocks of a region: how far they are from universal time, and when that changes, from the system's zone files. An
/// immutable object, usable on any thread; asking for a name twice gives one object for as long as the file stays the same.
///
///     auto const berlin = NSTimeZone::timeZoneWithName("Europe/Berlin");
///     auto const hours = berlin->secondsFromGMTForDate(NSDate::now()) / 3600;
class TESSARIN_API NSTimeZone : public NSObject {
public:
    /// Null unless the system has a zone of that name, or the name is a rule as POSIX has it, "CET-1CEST,M3.5.0,M10.5.0/3".
    static Ref<NSTimeZone> timeZoneWithName(std::string_view name);
    /// One whose clocks never change, "GMT+01:00". Null from 26 hours on.
    static Ref<NSTimeZone> timeZoneForSecondsFromGMT(std::int64_t seconds);

    /// The zone that calendars and formatters use: the one set by code, else the system's: the environment's TZ (a name, ":name",
    /// a file's path or a rule), else /etc/localtime; UTC when that says nothing understandable. These two are looked at again at
    /// most once a second.
    static Ref<NSTimeZone> const& localTimeZone();
    /// Null goes back to the system's.
    static void setDefaultTimeZone(Ref<NSTimeZone> zone);
    /// Looks at the environment again at the next use, without waiting for the second to pass; also at its languages.
    static void resetSystemTimeZone();

    std::string const& name() const noexcept { return name_; }
    /// Seconds that the clocks are ahead of universal time at that date.
    std::int64_t secondsFromGMTForDate(NSDate const& date) const;
    /// "CET", "CEST"; some zones have digits, "+03".
    std::string abbreviationForDate(NSDate const& date) const;
    bool isDaylightSavingTimeForDate(NSDate const& date) const;
    /// When the clocks or their names change next; absent when they never do again.
    std::optional<NSDate> nextDaylightSavingTimeTransitionAfterDate(NSDate const& date) const;

    std::string description() const override { return name_; }
    /// For calendars and formatters of the library.
    TimeZoneTable const& table() const noexcept { return *table_; }

    using NSObject::init;
    virtual void init(std::string name, std::shared_ptr<TimeZoneTable const> table);

protected:
    NSTimeZone() = default;

private:
    std::string name_; // constant after init
    std::shared_ptr<TimeZoneTable const> table_;
};

} // namespace Tessarin
