// How the typed readings of NSUserDefaults take a value of another kind. The table stands in the header.
#include "Tessarin/platform/foundation/preferences/NSUserDefaults.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace Tessarin {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// What follows leading white space and a sign; whether that was "-".
std::string_view unsignedPart(std::string_view text, bool& isNegative) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\r\f\v"), text.size()));
    isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+')) text.remove_prefix(1);
    return text;
}

std::int64_t leadingInteger(std::string_view text) {
    bool isNegative = false;
    text = unsignedPart(text, isNegative);
    constexpr auto most = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    std::uint64_t size = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), size).ec == std::errc::result_out_of_range)
        size = ~std::uint64_t{0};
    if (isNegative) return size > most ? std::numeric_limits<std::int64_t>::min() : -static_cast<std::int64_t>(size);
    return static_cast<std::int64_t>(std::min(size, most));
}

double leadingNumber(std::string_view text) {
    bool isNegative = false;
    text = unsignedPart(text, isNegative);
    bool const isNumber =
        !text.empty() && (isDigit(text[0]) || (text[0] == '.' && text.size() > 1 && isDigit(text[1]))); // no "inf"
    double number = 0;
    if (!isNumber) return 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc::result_out_of_range) {
        std::string_view const digits{text.data(), end};
        bool const isTiny =
            digits.find_first_of("eE") == digits.npos ? !isDigit(digits[0]) || digits[0] == '0' : digits.find('-') != digits.npos;
        number = isTiny ? 0 : HUGE_VAL;
    }
    return isNegative ? -number : number;
}

bool saysYes(std::string_view text) {
    bool isNegative = false;
    text = unsignedPart(text, isNegative);
    text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
    return !text.empty() && (std::string_view{"YyTt"}.find(text[0]) != text.npos || isDigit(text[0]));
}

template <class Number> std::string shortest(Number number) {
    char digits[32];
    return {digits, std::to_chars(digits, digits + sizeof digits, number).ptr};
}

} // namespace

std::optional<std::string> NSUserDefaults::stringForKey(std::string_view key) const {
    auto const value = objectForKey(key);
    switch (value.kind()) {
    case Value::Kind::Text: return std::string{value.text()};
    case Value::Kind::Boolean:
    case Value::Kind::Integer: return std::to_string(value.integer());
    case Value::Kind::Float: return shortest(static_cast<float>(value.number()));
    case Value::Kind::Double: return shortest(value.number());
    default: return {};
    }
}

std::int64_t NSUserDefaults::integerForKey(std::string_view key) const {
    auto const value = objectForKey(key);
    return value.isText() ? leadingInteger(value.text()) : value.integer();
}

double NSUserDefaults::doubleForKey(std::string_view key) const {
    auto const value = objectForKey(key);
    if (value.isText()) return leadingNumber(value.text());
    return value.isNumber() ? value.number() : 0;
}

float NSUserDefaults::floatForKey(std::string_view key) const { return static_cast<float>(doubleForKey(key)); }

bool NSUserDefaults::boolForKey(std::string_view key) const {
    auto const value = objectForKey(key);
    return value.isText() ? saysYes(value.text()) : value.boolean();
}

std::optional<std::vector<std::string>> NSUserDefaults::stringArrayForKey(std::string_view key) const {
    auto const value = objectForKey(key);
    if (value.kind() != Value::Kind::List) return {};
    std::vector<std::string> texts;
    texts.reserve(value.list().size());
    for (auto const& element : value.list()) {
        if (!element.isText()) return {};
        texts.emplace_back(element.text());
    }
    return texts;
}

} // namespace Tessarin
