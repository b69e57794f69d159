// Order, hash and description of values.
#include "Tessarin/platform/runtime/NSObject.h"
#include "Tessarin/platform/runtime/NestingPrivate.h"
#include "Tessarin/platform/runtime/OneLinePrivate.h"
#include "Tessarin/platform/runtime/QuotedText.h"
#include "Tessarin/platform/runtime/ValueEqualityPrivate.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <utility>

namespace Tessarin {
namespace {

using Kind = Value::Kind;

std::size_t hashBytes(void const* bytes, std::size_t size) {
    return std::hash<std::string_view>{}({static_cast<char const*>(bytes), size});
}

std::string numberText(double value) {
    if (std::isfinite(value) && value == std::trunc(value) && std::abs(value) < 1e15) return fmt::format("{:.0f}", value);
    return fmt::format("{}", value);
}

std::string uuidText(std::array<std::uint8_t, 16> const& bytes) {
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        if (at == 4 || at == 6 || at == 8 || at == 10) text += '-';
        text += fmt::format("{:02X}", bytes[at]);
    }
    return text;
}

void appendInside(std::string& line, Value const& value, std::size_t level = 0);

template <class Range> void appendElements(std::string& line, char const* ends, Range const& range, std::size_t level) {
    if (level == deepestLevel) {
        line += "…";
        return;
    }
    line += ends[0];
    char const* separator = "";
    for (auto const& element : range) {
        line += std::exchange(separator, ", ");
        if constexpr (requires { element.isAbsent(); }) {
            appendInside(line, element, level + 1);
        } else {
            auto const& [key, value] = element;
            appendInside(line, key, level + 1);
            line += ": ";
            appendInside(line, value, level + 1);
        }
    }
    line += ends[1];
}

/// What stands inside of a collection is kept to one line.
void appendInside(std::string& line, Value const& value, std::size_t level) {
    switch (value.kind()) {
    case Kind::Text: return appendQuotedText(line, value.text());
    case Kind::Object: line += asOneLine(value.description()); return;
    case Kind::List: return appendElements(line, "[]", value.list(), level);
    case Kind::Set: return appendElements(line, "{}", value.set(), level);
    case Kind::Dictionary: return appendElements(line, "{}", value.dictionary(), level);
    case Kind::ValueDictionary: return appendElements(line, "{}", value.valueDictionary(), level);
    default: line += value.description();
    }
}

constexpr std::size_t deepestHash = 16; // what lies deeper counts as the same

std::size_t hashAt(Value const& value, std::size_t level) noexcept {
    bool const isDeep = level == deepestHash;
    if (value.kind() == Kind::List) {
        std::size_t hash = 7;
        for (auto const& each : value.list()) hash = hash * 1'000'003 + (isDeep ? 1 : hashAt(each, level + 1));
        return hash;
    }
    if (value.kind() != Kind::Set) return value.hash();
    std::size_t hash = value.set().size() + 11; // in any order
    for (auto const& each : value.set()) hash += isDeep ? 1 : hashAt(each, level + 1);
    return hash;
}

} // namespace

std::partial_ordering compareValues(Value const& a, Value const& b) {
    if (a.isAbsent() || b.isAbsent()) return int{!a.isAbsent()} <=> int{!b.isAbsent()};
    if (a.isNumber() && b.isNumber()) return compareNumbers(a, b);
    auto const numeric = [](Value const& v) { return v.isNumber() || v.kind() == Kind::Decimal; };
    auto const endless = [](Value const& v) { return v.isNumber() && !std::isfinite(v.number()); }; // no decimal can say that
    if (numeric(a) && numeric(b)) return endless(a) || endless(b) ? a.number() <=> b.number() : a.decimal() <=> b.decimal();
    if (a.kind() != b.kind()) return std::partial_ordering::unordered;
    switch (a.kind()) {
    case Kind::Date: return a.dateSeconds() <=> b.dateSeconds();
    case Kind::Text: return a.text() <=> b.text();
    case Kind::URL: return a.urlText() <=> b.urlText();
    case Kind::UUID: return a.uuidBytes() <=> b.uuidBytes();
    case Kind::Data:
        return std::lexicographical_compare_three_way(a.bytes().begin(), a.bytes().end(), b.bytes().begin(), b.bytes().end());
    default: return a == b ? std::partial_ordering::equivalent : std::partial_ordering::unordered;
    }
}

std::size_t Value::hash() const noexcept {
    switch (kind()) {
    case Kind::Boolean:
    case Kind::Integer:
    case Kind::Float:
    case Kind::Double: return std::hash<double>{}(number()); // equal numbers of different kinds must agree
    case Kind::Date: return std::hash<double>{}(dateSeconds()) + 1;
    case Kind::Text: return std::hash<std::string_view>{}(text());
    case Kind::UUID: return hashBytes(uuidBytes().data(), 16);
    case Kind::Data: return hashBytes(bytes().data(), bytes().size());
    case Kind::URL: return std::hash<std::string_view>{}(urlText()) + 1;
    case Kind::Decimal: return std::hash<std::string>{}(decimal().text());
    case Kind::Object: return object()->hash();
    case Kind::List:
    case Kind::Set: return hashAt(*this, 0);
    case Kind::Dictionary: return dictionary().size() + 13;
    case Kind::ValueDictionary: return valueDictionary().size() + 17;
    default: return 0;
    }
}

std::string Value::description() const {
    switch (kind()) {
    case Kind::Absent: return "nil";
    case Kind::Boolean: return boolean() ? "true" : "false";
    case Kind::Integer: return fmt::format("{}", integer());
    case Kind::Float: return fmt::format("{}", static_cast<float>(number()));
    case Kind::Double: return numberText(number());
    case Kind::Date: return fmt::format("date({})", dateSeconds());
    case Kind::Text: return std::string{text()};
    case Kind::UUID: return uuidText(uuidBytes());
    case Kind::Data: return fmt::format("data({} bytes)", bytes().size());
    case Kind::URL: return std::string{urlText()};
    case Kind::Decimal: return decimal().text();
    case Kind::Object: return object()->description();
    default: break;
    }
    std::string line;
    appendInside(line, *this);
    return line;
}

} // namespace Tessarin
