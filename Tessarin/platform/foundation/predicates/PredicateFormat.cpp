#include "Tessarin/platform/foundation/predicates/PredicateFormatPrivate.h"

#include "Tessarin/platform/runtime/NestingPrivate.h"

#include <fmt/format.h>

#include <algorithm>

namespace Tessarin {
namespace {

using Kind = Value::Kind;

constexpr std::string_view keywords[] = {
    "ALL",     "AND",      "ANY",  "BEGINSWITH", "BETWEEN", "CAST", "CONTAINS", "ENDSWITH",     "FALSE", "FALSEPREDICATE",
    "FINDS",   "FUNCTION", "IN",   "INF",        "LIKE",    "NIL",  "NO",       "NONE",         "NOT",   "NULL",
    "MATCHES", "OR",       "SELF", "SOME",       "TRUE",    "YES",  "SUBQUERY", "TRUEPREDICATE"};

char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (auto const character : text) {
        if (character == '"' || character == '\\') result += '\\';
        if (character == '\n')
            result += "\\n";
        else
            result += character;
    }
    return result + '"';
}

std::string formatAt(std::size_t level, Value const& value);

template <class Range> std::string listed(std::size_t level, Range const& range) {
    if (level == deepestLevel) return "…"; // no format is nested as deeply
    std::string text = "{";
    for (auto const& member : range) text += (text.size() > 1 ? ", " : "") + formatAt(level + 1, member);
    return text + "}";
}

std::string formatAt(std::size_t level, Value const& value) {
    switch (value.kind()) {
    case Kind::Absent: return "nil";
    case Kind::Boolean: return value.boolean() ? "YES" : "NO";
    case Kind::Integer: return fmt::format("{}", value.integer());
    case Kind::Float:
    case Kind::Double: return fmt::format("{:#}", value.number()); // with a ".0" where it would read as an integer
    case Kind::Text: return quoted(value.text());
    case Kind::List: return listed(level, value.list());
    case Kind::Set: return listed(level, value.set());
    default: return value.description();
    }
}

} // namespace

std::string formatOfValue(Value const& value) { return formatAt(0, value); }

std::string formatOfKeyPath(KeyPath const& path) {
    std::string text;
    for (auto const& component : path.components()) {
        if (!text.empty()) text += '.';
        if (isFormatKeyword(component)) text += '#';
        text += component;
    }
    return text;
}

bool isInfinity(std::string_view word) { return std::ranges::equal(std::string_view{"INF"}, word, {}, {}, upper); }

bool isFormatKeyword(std::string_view word) {
    return std::ranges::any_of(keywords, [&](auto keyword) { return std::ranges::equal(keyword, word, {}, {}, upper); });
}

} // namespace Tessarin
