#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/platform/foundation/time/NSDateComponents.h"
#include "Tessarin/platform/foundation/time/NSTimeZone.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

/// Dates as people write them: a calendar together with the clocks of a zone. Immutable, usable on any thread.
///
///     auto const parts = NSCalendar::currentCalendar()->components(NSCalendarUnit::Hour | NSCalendarUnit::Minute, date);
///
/// "gregorian" is the Julian calendar before 1582-10-15. A wall time that the clocks skip moves forward by what they skip, so
/// 02:30 becomes 03:30; one that occurs twice means the first, unless a date says which is meant. Dates more than some five
/// million years away have no components and are not made; in other calendars than the Gregorian one a hundred thousand.
class TESSARIN_API NSCalendar : public NSObject {
public:
    /// The user's: the calendar that the locale (LC_ALL, else LC_TIME, else LANG) prefers, with the local time zone. What is
    /// asked of it follows these, but a calendar that was kept does not change.
    static Ref<NSCalendar> const& currentCalendar();
    /// "gregorian", "buddhist", "persian", "hebrew", "japanese", …; null for one that ICU does not know.
    static Ref<NSCalendar> calendarWithIdentifier(std::string_view identifier,
                                                  Ref<NSTimeZone> zone = NSTimeZone::localTimeZone());

    std::string const& calendarIdentifier() const noexcept { return identifier_; }
    Ref<NSTimeZone> const& timeZone() const noexcept { return zone_; }

    /// Those that `units` names. The era comes with the year where a calendar has several, so that the year can be found again.
    NSDateComponents components(NSCalendarUnit units, NSDate const& date) const;

    /// The date with these components, in whole seconds. What is absent is the first of its kind, year 1, month 1, hour 0; what
    /// lies outside its range carries over. Of a wall time that occurs twice it is the one with the same distance from
    /// universal time as `sibling` has, else the first. Absent when the date would be out of reach.
    std::optional<NSDate> dateFromComponents(NSDateComponents const& components, std::optional<NSDate> sibling = {}) const;

    /// Adds years, then months, each of which ends on the last day of a month that is too short; then days, all of these on
    /// the clock at the wall, keeping the time of the day; then hours, minutes and seconds, as time that passes. Days that are
    /// counted back onto one that is skipped as a whole end on the one before. Fractions of a second stay. Of a wall time that
    /// occurs twice it is the one with the offset of `date`. Absent when out of reach.
    std::optional<NSDate> dateByAddingComponents(NSDateComponents const& components, NSDate const& date) const;

    std::string description() const override;

    using NSObject::init;
    virtual void init(std::string identifier, Ref<NSTimeZone> zone);

protected:
    NSCalendar() = default;

private:
    std::optional<std::int64_t> dayOf(NSDateComponents const& components) const;
    std::optional<std::int64_t> addMonths(std::int64_t day, std::int64_t years, std::int64_t months) const;

    std::string identifier_; // all constant after init
    Ref<NSTimeZone> zone_;
    TimeZoneTable const* clocks_ = nullptr; // the zone's
    bool isGregorian_ = true;
};

} // namespace Tessarin
