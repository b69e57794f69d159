// Single comparisons of an SQL expression with a value or with another.
#include "Tessarin/platform/objectgraph/query/SQLFunctionsPrivate.h"
#include "Tessarin/platform/objectgraph/query/SQLTranslationPrivate.h"

#include <cmath>
#include <fmt/format.h>

namespace Tessarin {
namespace {

using Kind = Value::Kind;
using Operator = NSPredicateOperatorType;

constexpr std::size_t mostParameters = 30'000;
constexpr std::size_t longList = 64;

char const* symbolOf(Operator type) {
    constexpr char const* symbols[] = {"<", "<=", ">", ">="};
    return symbols[static_cast<std::size_t>(type)];
}

bool isOrder(Operator type) { return type <= Operator::GreaterThanOrEqualTo; }

/// How a value is bound for a comparison with that kind: not at all when the two can never be equal nor in order, and `exact`
/// turns false when SQL's numbers cannot say it.
struct Bound {
    std::optional<Value> value;
    bool exact = true;
};

Bound boundDecimal(Decimal const& decimal) {
    auto const number = decimal.doubleValue();
    if (std::abs(number) < 9e18 && number == std::trunc(number) && Decimal(static_cast<std::int64_t>(number)) == decimal)
        return {static_cast<std::int64_t>(number)};
    if (Decimal::fromDouble(number) == decimal) return {number};
    return {{}, false};
}

Bound bound(SQLSchema const& schema, SQLKind kind, Value const& value) {
    switch (kind) {
    case SQLKind::Number:
        if (value.kind() == Kind::Decimal) return boundDecimal(value.decimal());
        if (value.kind() == Kind::Boolean || value.kind() == Kind::Integer) return {value.integer()};
        if (!value.isNumber()) return {};
        if (std::isnan(value.number())) return {{}, false};
        return {value.number()};
    case SQLKind::Decimal:
        if (value.kind() != Kind::Decimal && !value.isNumber()) return {};
        if (!std::isfinite(value.number())) return {{}, false};
        return {Value(value.decimal().text())};
    case SQLKind::Date:
        return value.kind() == Kind::Date && !std::isnan(value.dateSeconds()) ? Bound{Value(value.dateSeconds())} : Bound{};
    case SQLKind::Text: return value.isText() ? Bound{value} : Bound{};
    case SQLKind::URL: return value.kind() == Kind::URL ? Bound{Value(value.urlText())} : Bound{};
    case SQLKind::Data: return value.kind() == Kind::Data ? Bound{value} : Bound{};
    case SQLKind::UUID: {
        if (value.kind() != Kind::UUID) return {};
        auto const bytes = value.uuidBytes();
        return {Value::data(std::as_bytes(std::span(bytes)))};
    }
    case SQLKind::Object: {
        auto const key = value.kind() == Kind::Object ? schema.keyOf(value) : 0;
        return key > 0 ? Bound{key} : Bound{};
    }
    }
    return {{}, false};
}

/// The smallest text that is greater than every text with that beginning; empty when there is none.
std::string after(std::string_view beginning) {
    std::string next(beginning);
    while (!next.empty() && static_cast<unsigned char>(next.back()) == 0xFF) next.pop_back();
    if (!next.empty()) next.back() = static_cast<char>(static_cast<unsigned char>(next.back()) + 1);
    return next;
}

} // namespace

std::optional<Value> SQLTranslation::argument(SQLSchema const& schema, SQLKind kind, Value const& value) {
    auto [argument, isExact] = bound(schema, kind, value);
    return isExact ? std::move(argument) : std::nullopt;
}

SQLTranslation::Said SQLTranslation::withValue(SQLOperand const& left, Operator type, TextOptions options, Value const& value) {
    if (type == Operator::EqualTo && value.isAbsent()) return left.sql + " IS NULL";
    if (type == Operator::NotEqualTo && value.isAbsent()) return left.sql + " IS NOT NULL";
    if (type == Operator::In && (value.kind() == Kind::List || value.kind() == Kind::Set)) return withList(left, options, value);
    if (type == Operator::Between) {
        if (value.list().size() != 2) return "0";
        auto const low = withValue(left, Operator::GreaterThanOrEqualTo, options, value.list()[0]);
        auto const high = low ? withValue(left, Operator::LessThanOrEqualTo, options, value.list()[1]) : std::nullopt;
        if (!high) return {};
        return fmt::format("({} AND {})", *low, *high);
    }
    if (value.isAbsent()) return "0";
    if (type == Operator::Finds) return left.kind == SQLKind::Text && value.isText() ? withWords({&left, 1}, value.text()) : "0";
    if (left.kind == SQLKind::Text && value.isText()) return withText(left, type, options, value.text());
    if (type != Operator::EqualTo && type != Operator::NotEqualTo && !isOrder(type))
        return "0"; // the others are for texts and lists
    auto const [other, exact] = bound(schema_, left.kind, value);
    if (!exact || (left.kind == SQLKind::Object && isOrder(type))) return {};
    if (!other) return type == Operator::NotEqualTo ? "1" : "0";
    if (type == Operator::EqualTo) return fmt::format("{} = {}", left.sql, parameter(*other));
    if (type == Operator::NotEqualTo) return fmt::format("{} IS NOT {}", left.sql, parameter(*other));
    auto const collation = left.kind == SQLKind::Decimal ? fmt::format(" COLLATE {}", decimalCollation) : std::string();
    return fmt::format("{}{} {} {}", left.sql, collation, symbolOf(type), parameter(*other));
}

SQLTranslation::Said SQLTranslation::withText(SQLOperand const& left, Operator type, TextOptions options, std::string_view text) {
    auto const& column = left.sql;
    if (type == Operator::Matches)
        return fmt::format("tessarin_matches({}, {}, {})", column, parameter(text), static_cast<unsigned>(options));
    if (options == TextOptions::None) {
        if (type == Operator::EqualTo) return fmt::format("{} = {}", column, parameter(text));
        if (type == Operator::NotEqualTo) return fmt::format("{} IS NOT {}", column, parameter(text));
        if (isOrder(type)) return fmt::format("{} {} {}", column, symbolOf(type), parameter(text));
        if (type == Operator::Contains) return fmt::format("instr({}, {}) > 0", column, parameter(text));
        if (type == Operator::In) return fmt::format("instr({}, {}) > 0", parameter(text), column);
        if (auto const end = after(text); type == Operator::BeginsWith && !end.empty()) {
            auto const from = parameter(text);
            return fmt::format("({0} >= {1} AND {0} < {2})", column, from, parameter(end));
        }
    }
    bool const isNegated = type == Operator::NotEqualTo;
    auto const narrowed = candidates(left, type, options, text);
    auto const condition =
        narrowed + fmt::format("tessarin_text({}, {}, {}, {})", column, parameter(foldedText(text, options)),
                               static_cast<int>(isNegated ? Operator::EqualTo : type), static_cast<unsigned>(options));
    if (!narrowed.empty()) return fmt::format("({})", condition);
    return isNegated ? condition + " IS NOT TRUE" : condition;
}

SQLTranslation::Said SQLTranslation::withList(SQLOperand const& left, TextOptions options, Value const& list) {
    bool const isFolded = left.kind == SQLKind::Text && options != TextOptions::None;
    List members;
    bool exact = true;
    auto const add = [&](Value const& member) {
        auto [value, isExact] = bound(schema_, left.kind, member);
        exact = exact && isExact;
        if (value) members.push_back(isFolded ? Value(foldedText(value->text(), options)) : std::move(*value));
    };
    for (auto const& member : list.list()) add(member);
    for (auto const& member : list.set()) add(member);
    if (!exact || members.size() > mostParameters) return {};
    if (members.empty()) return "0";
    if (members.size() > longList) isReusable_ = false;
    std::string parameters;
    for (auto& member : members) parameters += (parameters.empty() ? "" : ", ") + parameter(std::move(member));
    auto const column = isFolded ? fmt::format("tessarin_fold({}, {})", left.sql, static_cast<unsigned>(options)) : left.sql;
    return fmt::format("{} IN ({})", column, parameters);
}

SQLTranslation::Said SQLTranslation::withOperand(SQLOperand const& left, Operator type, TextOptions options,
                                                 SQLOperand const& right) const {
    if (left.kind != right.kind || options != TextOptions::None) return {};
    if (type == Operator::EqualTo) return fmt::format("{} IS {}", left.sql, right.sql); // two absent values are equal
    if (type == Operator::NotEqualTo) return fmt::format("{} IS NOT {}", left.sql, right.sql);
    if (!isOrder(type) || left.kind == SQLKind::Object || left.kind == SQLKind::Decimal) return {};
    return fmt::format("{} {} {}", left.sql, symbolOf(type), right.sql);
}

} // namespace Tessarin
