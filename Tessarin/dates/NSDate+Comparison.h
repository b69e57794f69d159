#pragma once
#include "Tessarin/Export.h"

namespace Tessarin {

class NSDate;

/// Which of two dates comes first, and days in the user's calendar and time zone.
///
///     if (mail.isYesterday()) group = "Yesterday"; else if (a < b) …
class TESSARIN_API NSDateComparison {
    friend class NSDate; // only NSDate can carry this room
    constexpr NSDateComparison() noexcept = default;

public:
    /// Whether both lie in one day of the calendar.
    bool isSameDayAs(NSDate const& other) const;
    bool isToday() const;
    bool isTomorrow() const;
    bool isYesterday() const;

    /// A date is neither after nor before itself.
    bool isAfter(NSDate const& other) const;
    bool isBefore(NSDate const& other) const;

protected:
    ~NSDateComparison() = default;
};

/// Order as by the two above, equality by exactly equal seconds.
bool operator<(NSDate const& a, NSDate const& b);
bool operator>(NSDate const& a, NSDate const& b);
bool operator<=(NSDate const& a, NSDate const& b);
bool operator>=(NSDate const& a, NSDate const& b);

} // namespace Tessarin
