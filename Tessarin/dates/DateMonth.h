#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Enumeration.h"
#include <optional>
#include <string>

namespace Tessarin {

/// A month. Raw values are the calendar's numbers and count from 1; positions in the lists of names count from 0.
///
///     DateMonth::March.increment(10) == DateMonth::January
struct TESSARIN_API DateMonth : Enumeration<DateMonth> {
    static const DateMonth January, February, March, April, May, June, July, August, September, October, November, December;
    /// 1 to 12.
    static std::optional<DateMonth> fromRawValue(std::int64_t rawValue);

    /// After December comes January.
    DateMonth nextMonth() const;
    /// The month so many months on. Fatal when the position plus `months` is negative or does not fit: `January.increment(-1)`.
    DateMonth increment(std::int64_t months) const;

    /// In the user's language: "March", "Mar".
    std::string name() const;
    std::string shortName() const;

private:
    using Enumeration::Enumeration;
};

inline constexpr DateMonth DateMonth::January{1};
inline constexpr DateMonth DateMonth::February{2};
inline constexpr DateMonth DateMonth::March{3};
inline constexpr DateMonth DateMonth::April{4};
inline constexpr DateMonth DateMonth::May{5};
inline constexpr DateMonth DateMonth::June{6};
inline constexpr DateMonth DateMonth::July{7};
inline constexpr DateMonth DateMonth::August{8};
inline constexpr DateMonth DateMonth::September{9};
inline constexpr DateMonth DateMonth::October{10};
inline constexpr DateMonth DateMonth::November{11};
inline constexpr DateMonth DateMonth::December{12};

} // namespace Tessarin

/// A month's hash is its position.
template <> struct std::hash<Tessarin::DateMonth> {
    std::size_t operator()(Tessarin::DateMonth month) const noexcept { return static_cast<std::size_t>(month.rawValue() - 1); }
};
