#pragma once
#include "Tessarin/Export.h"
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

/// A decimal number, mantissa × 10^exponent with at most 38 digits, kept without trailing zeros so that equal numbers have
/// equal fields.
class TESSARIN_API Decimal {
public:
    Decimal() = default;
    Decimal(std::int64_t value) : Decimal(value, 0) {}
    /// The decimal that reads like the shortest text of `value`; zero for what is not finite.
    static Decimal fromDouble(double value);
    /// Reads "-12.50", "3e-7"; absent for anything else and for more than 38 digits.
    static std::optional<Decimal> fromText(std::string_view text);

    double doubleValue() const;
    /// Digits without an exponent, as short as possible: "12.5", "-0.0003".
    std::string text() const;

    friend bool operator==(Decimal const&, Decimal const&) = default;
    friend std::weak_ordering operator<=>(Decimal const& a, Decimal const& b) { return a.compare(b); }

private:
    __extension__ using Mantissa = __int128;
    Decimal(Mantissa mantissa, std::int32_t exponent);
    std::weak_ordering compare(Decimal const& other) const;

    Mantissa mantissa_ = 0;
    std::int32_t exponent_ = 0;
};

} // namespace Tessarin
