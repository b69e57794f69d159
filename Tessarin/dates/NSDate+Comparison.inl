// Inline, since lists of dates are sorted by these. Included at the end of NSDate.h.
#pragma once

namespace Tessarin {

inline bool NSDateComparison::isAfter(NSDate const& other) const {
    auto const& self = static_cast<NSDate const&>(*this);
    if (self.earlierDate(other) == self) return false;
    return !(other == self);
}

inline bool NSDateComparison::isBefore(NSDate const& other) const {
    auto const& self = static_cast<NSDate const&>(*this);
    if (self.earlierDate(other).timeIntervalSinceReferenceDate() != self.timeIntervalSinceReferenceDate()) return false;
    return !(other == self);
}

inline bool operator<(NSDate const& a, NSDate const& b) { return a.isBefore(b); }
inline bool operator>(NSDate const& a, NSDate const& b) { return a.isAfter(b); }
inline bool operator<=(NSDate const& a, NSDate const& b) { return !b.isBefore(a); }
inline bool operator>=(NSDate const& a, NSDate const& b) { return !a.isBefore(b); }

} // namespace Tessarin
