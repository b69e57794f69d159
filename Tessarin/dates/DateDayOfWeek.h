#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Enumeration.h"
#include <optional>
#include <string>

namespace Tessarin {

/// A day of the week. Raw values count from 0, Sunday first, as the lists of names do; those of months count from 1.
///
///     DateDayOfWeek::Monday.increment(13) == DateDayOfWeek::Sunday
struct TESSARIN_API DateDayOfWeek : Enumeration<DateDayOfWeek> {
    static const DateDayOfWeek Sunday, Monday, Tuesday, Wednesday, Thursday, Friday, Saturday;
    /// 0 to 6.
    static std::optional<DateDayOfWeek> fromRawValue(std::int64_t rawValue);

    /// After Saturday comes Sunday.
    DateDayOfWeek nextDay() const;
    /// The day so many days on. Fatal when the raw value plus `days` is negative or does not fit: `Sunday.increment(-1)`.
    DateDayOfWeek increment(std::int64_t days) const;

    /// In the user's language: "Sunday", "Sun".
    std::string name() const;
    std::string shortName() const;

private:
    using Enumeration::Enumeration;
};

inline constexpr DateDayOfWeek DateDayOfWeek::Sunday{0};
inline constexpr DateDayOfWeek DateDayOfWeek::Monday{1};
inline constexpr DateDayOfWeek DateDayOfWeek::Tuesday{2};
inline constexpr DateDayOfWeek DateDayOfWeek::Wednesday{3};
inline constexpr DateDayOfWeek DateDayOfWeek::Thursday{4};
inline constexpr DateDayOfWeek DateDayOfWeek::Friday{5};
inline constexpr DateDayOfWeek DateDayOfWeek::Saturday{6};

} // namespace Tessarin
