#include "Tessarin/platform/runtime/Decimal.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>

namespace Tessarin {
namespace {

constexpr int mostDigits = 38;

/// The digits of a number's text around its point, and where the point stands.
struct Parts {
    bool negative = false;
    std::string digits;
    std::int64_t exponent = 0;
};

std::optional<Parts> split(std::string_view text) {
    Parts parts;
    if (!text.empty() && (text[0] == '-' || text[0] == '+')) {
        parts.negative = text[0] == '-';
        text.remove_prefix(1);
    }
    auto const mark = text.find_first_of("eE");
    if (mark != text.npos) {
        auto exponent = text.substr(mark + 1);
        if (exponent.starts_with('+')) {
            exponent.remove_prefix(1);
            if (exponent.starts_with('-')) return {};
        }
        auto const end = exponent.data() + exponent.size();
        auto const [stop, error] = std::from_chars(exponent.data(), end, parts.exponent);
        if (error != std::errc{} || stop != end || std::abs(parts.exponent) > 100'000) return {};
        text = text.substr(0, mark);
    }
    auto const point = text.find('.');
    auto const whole = text.substr(0, point);
    auto const fraction = point == text.npos ? std::string_view{} : text.substr(point + 1);
    parts.digits = std::string{whole} + std::string{fraction};
    parts.exponent -= static_cast<std::int64_t>(fraction.size());
    auto const isDigit = [](char c) { return c >= '0' && c <= '9'; };
    if (parts.digits.empty() || !std::ranges::all_of(parts.digits, isDigit)) return {};
    return parts;
}

} // namespace

Decimal::Decimal(Mantissa mantissa, std::int32_t exponent) : mantissa_(mantissa), exponent_(exponent) {
    while (mantissa_ != 0 && mantissa_ % 10 == 0) {
        mantissa_ /= 10;
        ++exponent_;
    }
    if (mantissa_ == 0) exponent_ = 0;
}

std::optional<Decimal> Decimal::fromText(std::string_view text) {
    auto parts = split(text);
    if (!parts) return {};
    auto digits = std::string_view{parts->digits};
    while (digits.size() > 1 && digits.back() == '0') {
        digits.remove_suffix(1);
        ++parts->exponent;
    }
    digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size() - 1));
    if (digits.size() > mostDigits) return {};
    Mantissa mantissa = 0;
    for (char const digit : digits) mantissa = mantissa * 10 + (digit - '0');
    return Decimal{parts->negative ? -mantissa : mantissa, static_cast<std::int32_t>(parts->exponent)};
}

Decimal Decimal::fromDouble(double value) {
    if (!std::isfinite(value)) return {};
    char digits[32];
    auto const [end, error] = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::scientific);
    return fromText({digits, static_cast<std::size_t>(end - digits)}).value_or(Decimal{});
}

double Decimal::doubleValue() const {
    auto const digits = text();
    return std::strtod(digits.c_str(), nullptr);
}

std::string Decimal::text() const {
    if (mantissa_ == 0) return "0";
    std::string digits;
    for (auto rest = mantissa_ < 0 ? -mantissa_ : mantissa_; rest != 0; rest /= 10)
        digits.push_back(static_cast<char>('0' + static_cast<int>(rest % 10)));
    std::ranges::reverse(digits);
    if (exponent_ >= 0) {
        digits.append(static_cast<std::size_t>(exponent_), '0');
    } else {
        auto const places = static_cast<std::size_t>(-exponent_);
        if (digits.size() <= places) digits.insert(0, places - digits.size() + 1, '0');
        digits.insert(digits.size() - places, 1, '.');
    }
    return mantissa_ < 0 ? "-" + digits : digits;
}

std::weak_ordering Decimal::compare(Decimal const& other) const {
    if ((mantissa_ < 0) != (other.mantissa_ < 0) || mantissa_ == 0 || other.mantissa_ == 0)
        return mantissa_ < other.mantissa_   ? std::weak_ordering::less
               : mantissa_ > other.mantissa_ ? std::weak_ordering::greater
                                             : std::weak_ordering::equivalent;
    auto a = text(), b = other.text();
    bool const negative = mantissa_ < 0;
    auto const wholeDigits = [](std::string const& t) { return std::min(t.find('.'), t.size()); };
    if (wholeDigits(a) != wholeDigits(b))
        return (wholeDigits(a) < wholeDigits(b)) != negative ? std::weak_ordering::less : std::weak_ordering::greater;
    int const order = a.compare(b);
    if (order == 0) return std::weak_ordering::equivalent;
    return (order < 0) != negative ? std::weak_ordering::less : std::weak_ordering::greater;
}

} // namespace Tessarin
