#include "Tessarin/text/NumberLike.h"

#include "Tessarin/platform/foundation/text/BlanksPrivate.h"
#include "Tessarin/platform/foundation/text/NumberReadingPrivate.h"

#include <cmath>
#include <limits>

namespace Tessarin {
namespace {

template <class Number> std::optional<Number> parsed(std::string_view text) noexcept {
    return readNumber<Number>(withoutBlanks(text));
}

bool isWhole(std::string_view text) noexcept { return text.find_first_of(".eEnN") == text.npos; }

bool isExact(Value::Kind kind) { return kind == Value::Kind::Boolean || kind == Value::Kind::Integer; }

std::optional<double> numberIn(Value const& value) {
    if (value.isNumber() || value.kind() == Value::Kind::Decimal) return value.number();
    return {};
}

} // namespace

std::optional<std::int64_t> integerOf(std::string_view text) noexcept {
    if (isWhole(text)) return parsed<std::int64_t>(text); // a detour by double would round
    auto const number = parsed<double>(text);
    auto const plain = withoutBlanks(text);
    if (number && plain.find_first_of("eEnN") == plain.npos)
        if (auto const exact = readNumber<std::int64_t>(plain.substr(0, plain.find('.')))) return exact;
    return number ? Tessarin::integerOf(*number) : std::nullopt;
}

std::optional<std::int64_t> detail::integerOf(Value const& value) {
    if (isExact(value.kind())) return value.integer();
    if (value.isText()) return Tessarin::integerOf(value.text());
    if (value.kind() == Value::Kind::Decimal) { // exactly, where a double would round
        auto const digits = value.decimal().text();
        return parsed<std::int64_t>(std::string_view{digits}.substr(0, digits.find('.')));
    }
    auto const number = numberIn(value);
    return number ? Tessarin::integerOf(*number) : std::nullopt;
}

std::optional<double> doubleOf(std::string_view text) noexcept { return parsed<double>(text); }

std::optional<double> detail::doubleOf(Value const& value) {
    return value.isText() ? Tessarin::doubleOf(value.text()) : numberIn(value);
}

std::optional<float> floatOf(double value) noexcept {
    auto const nearest = static_cast<float>(value);
    return std::isinf(nearest) && !std::isinf(value) ? std::nullopt : std::optional(nearest);
}

std::optional<float> floatOf(std::string_view text) noexcept { return parsed<float>(text); }

std::optional<float> detail::floatOf(Value const& value) {
    if (value.isText()) return Tessarin::floatOf(value.text());
    auto const number = numberIn(value);
    return number ? Tessarin::floatOf(*number) : std::nullopt;
}

} // namespace Tessarin
