// Equality, order, hash and description of values.
#include "Tessarin/platform/runtime/NSObject.h"
#include "Tessarin/platform/runtime/OneLinePrivate.h"
#include "Tessarin/platform/runtime/QuotedText.h"
#include "Tessarin/platform/runtime/Value.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <utility>

namespace Tessarin {
namespace {

using Kind = Value::Kind;

bool isWhole(Value const& value) { return value.kind() == Kind::Integer || value.kind() == Kind::Boolean; }

std::partial_ordering compareNumbers(Value const& a, Value const& b) {
    if (isWhole(a) && isWhole(b)) return a.integer() <=> b.integer();
    auto const exact = [](Value const& v) -> long double { // a long double holds 64-bit integers and doubles alike
        if (isWhole(v)) return static_cast<long double>(v.integer());
        return v.number();
    };
    return exact(a) <=> exact(b);
}

bool equalObjects(Ref<NSObject> const& a, Ref<NSObject> const& b) { return a == b || a->isEqual(*b); }

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

void appendInside(std::string& line, Value const& value);

template <class Range> void appendElements(std::string& line, char const* ends, Range const& range) {
    line += ends[0];
    char const* separator = "";
    for (auto const& element : range) {
        line += std::exchange(separator, ", ");
        if constexpr (requires { element.isAbsent(); }) {
            appendInside(line, element);
        } else {
            auto const& [key, value] = element;
            appendInside(line, key);
            line += ": ";
            appendInside(line, value);
        }
    }
    line += ends[1];
}

/// What stands inside of a collection is kept to one line.
void appendInside(std::string& line, Value const& value) {
    switch (value.kind()) {
    case Kind::Text: return appendQuotedText(line, value.text());
    case Kind::Object: line += asOneLine(value.description()); return;
    case Kind::List: return appendElements(line, "[]", value.list());
    case Kind::Set: return appendElements(line, "{}", value.set());
    case Kind::Dictionary: return appendElements(line, "{}", value.dictionary());
    case Kind::ValueDictionary: return appendElements(line, "{}", value.valueDictionary());
    default: line += value.description();
    }
}

} // namespace

bool operator==(Value const& a, Value const& b) {
    if (a.isNumber() && b.isNumber()) return compareNumbers(a, b) == 0;
    if (a.kind() != b.kind()) return false;
    switch (a.kind()) {
    case Kind::Absent: return true;
    case Kind::Date: return a.dateSeconds() == b.dateSeconds();
    case Kind::Text: return a.text() == b.text();
    case Kind::UUID: return a.uuidBytes() == b.uuidBytes();
    case Kind::Data: return std::ranges::equal(a.bytes(), b.bytes());
    case Kind::URL: return a.urlText() == b.urlText();
    case Kind::Decimal: return a.decimal() == b.decimal();
    case Kind::Object: return equalObjects(a.object(), b.object());
    case Kind::List: return a.list() == b.list();
    case Kind::Set: return a.set() == b.set();
    case Kind::Dictionary: return a.dictionary() == b.dictionary();
    case Kind::ValueDictionary: return a.valueDictionary() == b.valueDictionary();
    default: return false;
    }
}

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
    case Kind::List: {
        std::size_t hash = 7;
        for (auto const& value : list()) hash = hash * 1'000'003 + value.hash();
        return hash;
    }
    case Kind::Set: { // in any order
        std::size_t hash = set().size() + 11;
        for (auto const& value : set()) hash += value.hash();
        return hash;
    }
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
