#include "Tessarin/platform/objectgraph/query/SQLTranslationPrivate.h"

#include "Tessarin/platform/objectgraph/query/SQLFunctionsPrivate.h"
#include "Tessarin/platform/objectgraph/query/SearchRankPrivate.h"

#include <fmt/format.h>

namespace Tessarin {
namespace {

using Operator = NSPredicateOperatorType;
using Modifier = NSComparisonPredicateModifier;

/// The path of an expression that starts at the record; absent for any other.
std::optional<std::span<std::string const>> pathOf(NSExpression const& expression) {
    if (expression.expressionType() == NSExpressionType::EvaluatedObject) return std::span<std::string const>();
    if (expression.expressionType() != NSExpressionType::KeyPath) return {};
    if (expression.operand() && expression.operand()->expressionType() != NSExpressionType::EvaluatedObject) return {};
    auto path = expression.keyPath().components();
    for (auto const* self : {"self", "SELF"})
        if (!path.empty() && path.front() == self) path = path.subspan(1);
    return path;
}

/// The operator with its sides exchanged; absent where it has no such twin.
std::optional<Operator> exchanged(Operator type) {
    switch (type) {
    case Operator::LessThan: return Operator::GreaterThan;
    case Operator::LessThanOrEqualTo: return Operator::GreaterThanOrEqualTo;
    case Operator::GreaterThan: return Operator::LessThan;
    case Operator::GreaterThanOrEqualTo: return Operator::LessThanOrEqualTo;
    case Operator::EqualTo:
    case Operator::NotEqualTo: return type;
    case Operator::In: return Operator::Contains;
    case Operator::Contains: return Operator::In;
    default: return {};
    }
}

/// SQLite limits how deep an expression may nest, and a chain of 1,000 ORs nests as deep: so they are joined in halves.
std::string joined(std::span<std::string const> conditions, char const* word) {
    if (conditions.size() == 1) return conditions.front();
    auto const half = conditions.size() / 2;
    return fmt::format("({} {} {})", joined(conditions.first(half), word), word, joined(conditions.subspan(half), word));
}

constexpr int deepestNesting = 100;

} // namespace

SQLTranslation::SQLTranslation(SQLSchema const& schema, NSEntityDescription const& entity)
    : schema_(schema), paths_(schema), scope_{.entity = &entity, .alias = "t0"} {}

std::string SQLTranslation::parameter(Value value) {
    arguments_.push_back(std::move(value));
    return "?";
}

// Of conditions that must all hold, each that can be said is.
bool SQLTranslation::addPredicate(NSPredicate const& predicate) {
    if (auto const* compound = predicate.asCompound();
        compound && compound->compoundPredicateType() == NSCompoundPredicateType::And) {
        bool complete = true;
        for (auto const& part : compound->subpredicates()) complete = addPredicate(*part) && complete;
        return complete;
    }
    if (auto const* comparison = predicate.asComparison(); comparison && addSource(*comparison)) return true;
    auto const before = arguments_.size();
    auto const condition = said(predicate, scope_);
    if (!condition) {
        arguments_.resize(before);
        return false;
    }
    conditions_.push_back(*condition);
    return true;
}

std::string SQLTranslation::condition() const { return conditions_.empty() ? std::string() : joined(conditions_, "AND"); }

SQLTranslation::Said SQLTranslation::said(NSPredicate const& predicate, SQLScope& scope) {
    if (auto const* compound = predicate.asCompound()) return said(*compound, scope);
    if (auto const* comparison = predicate.asComparison()) return said(*comparison, scope);
    if (predicate.predicateType() != NSPredicateType::Value) return {};
    return predicate.value() ? "1" : "0";
}

SQLTranslation::Said SQLTranslation::said(NSCompoundPredicate const& predicate, SQLScope& scope) {
    if (depth_ > deepestNesting) return {};
    ++depth_;
    std::vector<std::string> parts;
    for (auto const& part : predicate.subpredicates())
        if (auto one = said(*part, scope)) parts.push_back(std::move(*one));
    --depth_;
    if (parts.size() != predicate.subpredicates().size()) return {};
    switch (predicate.compoundPredicateType()) {
    case NSCompoundPredicateType::Not: return fmt::format("({}) IS NOT TRUE", parts.front()); // true also of NULL
    case NSCompoundPredicateType::And: return parts.empty() ? "1" : joined(parts, "AND");
    case NSCompoundPredicateType::Or: break;
    }
    return parts.empty() ? "0" : joined(parts, "OR");
}

SQLTranslation::Said SQLTranslation::said(NSComparisonPredicate const& predicate, SQLScope& scope) {
    auto const* left = predicate.leftExpression().get();
    auto const* right = predicate.rightExpression().get();
    auto type = predicate.predicateOperatorType();
    auto modifier = predicate.comparisonPredicateModifier();
    if (left->isConstant()) { // the path to the left
        auto const twin = exchanged(type);
        if (!twin || modifier != Modifier::Direct) return {};
        std::swap(left, right);
        type = *twin;
    }
    if (auto const texts = textsOf(predicate, scope)) {
        auto const words = right->expressionValueWithObject({});
        return words.isText() ? withWords(*texts, words.text()) : "0";
    }
    auto const path = pathOf(*left);
    if (!path) return {};
    if (auto const operand = paths_.operand(*path, scope)) {
        auto const condition = compared(predicate, *operand, type, *right, scope);
        // ALL of an absent value has nothing to contradict it, ANY nothing to fulfil it.
        if (!condition || modifier == Modifier::Direct) return condition;
        auto const* const guard = modifier == Modifier::All ? "NULL OR" : "NOT NULL AND";
        return fmt::format("({} IS {} {})", operand->sql, guard, *condition);
    }
    if (!right->isConstant()) return {};
    auto const value = right->expressionValueWithObject({});
    if (modifier == Modifier::Direct) { // a list of members has only its own operator, and an aggregate of it is none
        if (type != Operator::Contains || path->back().starts_with('@')) return {};
        if (value.isAbsent()) return "0";
        type = Operator::EqualTo;
        modifier = Modifier::Any;
    }
    return withMembers(predicate, *path, type, modifier, value, scope);
}

SQLTranslation::Said SQLTranslation::compared(NSComparisonPredicate const& predicate, SQLOperand const& left, Operator type,
                                              NSExpression const& right, SQLScope& scope) {
    if (right.isConstant()) return withValue(left, type, predicate.options(), right.expressionValueWithObject({}));
    auto const path = pathOf(right);
    if (!path) return {};
    if (auto const other = paths_.operand(*path, scope)) return withOperand(left, type, predicate.options(), *other);
    return {};
}

SQLTranslation::Said SQLTranslation::withMembers(NSComparisonPredicate const& predicate, std::span<std::string const> path,
                                                 Operator type, Modifier modifier, Value const& value, SQLScope& scope) {
    auto members = paths_.members(path, scope);
    if (!members) return {};
    auto const condition = withValue(members->member, type, predicate.options(), value);
    if (!condition) return {};
    // Members whose value is absent are not looked at.
    auto const exists = fmt::format("EXISTS (SELECT 1 {}{} WHERE {} AND {} IS NOT NULL AND ", members->from, members->scope.joins,
                                    members->condition, members->member.sql);
    if (modifier == Modifier::Any) return exists + *condition + ")";
    return fmt::format("NOT {}({}) IS NOT TRUE)", exists, *condition);
}

bool SQLTranslation::addOrder(std::span<Ref<NSSortDescriptor> const> descriptors) {
    std::string order;
    for (auto const& descriptor : descriptors) {
        if (descriptor->key() == searchRankKey) {
            if (source_.empty()) return false;
            order += fmt::format("{}f.rank{}", order.empty() ? "" : ", ", descriptor->ascending() ? "" : " DESC");
            continue;
        }
        auto const operand = paths_.operand(descriptor->keyPath().components(), scope_);
        if (!operand || operand->kind == SQLKind::Object) return false;
        order += (order.empty() ? "" : ", ") + operand->sql;
        auto const collation = operand->kind == SQLKind::Decimal ? decimalCollation
                               : operand->kind == SQLKind::Text  ? collationFor(descriptor->comparison())
                                                                 : std::string();
        if (!collation.empty()) order += " COLLATE " + collation;
        if (!descriptor->ascending()) order += " DESC";
    }
    isOrderedByRank_ = descriptors.size() == 1 && descriptors.front()->key() == searchRankKey;
    if (!order.empty()) order_ = order + ", t0.id"; // equal ones stand in a fixed order
    return true;
}

} // namespace Tessarin
