#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Value.h"
#include <iosfwd>
#include <optional>
#include <string>
// What other rooms add to dates:
#include "Tessarin/dates/NSDate+Ages.h"
#include "Tessarin/dates/NSDate+Arithmetic.h"
#include "Tessarin/dates/NSDate+Comparison.h"
#include "Tessarin/dates/NSDate+Components.h"
#include "Tessarin/dates/NSDate+Formatting.h"
#include "Tessarin/platform/foundation/time/NSDate+Parsing.h"

namespace Tessarin {

/// A number of seconds.
using NSTimeInterval = double;
/// From 1970-01-01 to 2001-01-01, both 00:00:00 UTC.
inline constexpr NSTimeInterval NSTimeIntervalSince1970 = 978307200;

/// A point in time: a value of eight bytes, seconds since 2001-01-01 00:00:00 UTC, before it negative. Leap seconds do not
/// count. What calendars and clocks on the wall make of it is theirs; a date knows no zone.
///
///     auto const start = NSDate::now();
///     if (start.dateByAddingTimeInterval(60) < NSDate::now()) print("a minute has passed");
class TESSARIN_API NSDate : public NSDateParsing,
                            public NSDateComponentsAccess,
                            public NSDateComparison,
                            public NSDateArithmetic,
                            public NSDateFormatting,
                            public NSDateAges {
public:
    /// Now.
    NSDate();
    static NSDate now() { return NSDate{}; }
    static constexpr NSDate dateWithTimeIntervalSinceReferenceDate(NSTimeInterval seconds) { return NSDate{seconds}; }
    static constexpr NSDate dateWithTimeIntervalSince1970(NSTimeInterval seconds) {
        return NSDate{seconds - NSTimeIntervalSince1970};
    }
    static NSDate dateWithTimeIntervalSinceNow(NSTimeInterval seconds) { return NSDate{}.dateByAddingTimeInterval(seconds); }
    /// 0001-01-01 and 4001-01-01, 00:00:00 UTC.
    static constexpr NSDate distantPast() { return NSDate{-63114076800.0}; }
    static constexpr NSDate distantFuture() { return NSDate{63113904000.0}; }

    constexpr NSTimeInterval timeIntervalSinceReferenceDate() const noexcept { return seconds_; }
    constexpr NSTimeInterval timeIntervalSince1970() const noexcept { return seconds_ + NSTimeIntervalSince1970; }
    /// Positive when this is the later of the two.
    constexpr NSTimeInterval timeIntervalSinceDate(NSDate const& other) const noexcept { return seconds_ - other.seconds_; }
    /// Negative for a date in the past.
    NSTimeInterval timeIntervalSinceNow() const { return timeIntervalSinceDate(NSDate{}); }
    constexpr NSDate dateByAddingTimeInterval(NSTimeInterval seconds) const noexcept { return NSDate{seconds_ + seconds}; }
    constexpr NSDate earlierDate(NSDate const& other) const noexcept { return other.seconds_ < seconds_ ? other : *this; }
    constexpr NSDate laterDate(NSDate const& other) const noexcept { return other.seconds_ > seconds_ ? other : *this; }

    /// "2001-01-01 00:00:00 +0000", in UTC, fractions of a second dropped.
    std::string description() const;

    friend constexpr bool operator==(NSDate const& a, NSDate const& b) noexcept { return a.seconds_ == b.seconds_; }
    friend TESSARIN_API std::ostream& operator<<(std::ostream& out, NSDate const& date);

private:
    explicit constexpr NSDate(NSTimeInterval seconds) noexcept : seconds_(seconds) {}

    NSTimeInterval seconds_;
};

template <> struct ValueTraits<NSDate> {
    static Value into(NSDate const& date) { return Value::date(date.timeIntervalSinceReferenceDate()); }
    static std::optional<NSDate> from(Value const& value) {
        if (value.kind() != Value::Kind::Date) return {};
        return NSDate::dateWithTimeIntervalSinceReferenceDate(value.dateSeconds());
    }
};

} // namespace Tessarin

template <> struct std::hash<Tessarin::NSDate> {
    std::size_t operator()(Tessarin::NSDate const& date) const noexcept {
        return std::hash<double>{}(date.timeIntervalSinceReferenceDate());
    }
};

#include "Tessarin/dates/NSDate+Comparison.inl"
