#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteKnownRequestsPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderPrivate.h"
#include "Tessarin/platform/objectgraph/query/SQLTranslationPrivate.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Tessarin {
namespace {

using Comparisons = SQLiteKnownRequests::Comparisons;
using Kind = Value::Kind;

KeyPath const& pathOf(NSComparisonPredicate const& comparison) { return comparison.leftExpression()->keyPath(); }
Value const& valueOf(NSComparisonPredicate const& comparison) { return comparison.rightExpression()->constantValue(); }

bool isPlain(Value const& value) {
    switch (value.kind()) {
    case Kind::Boolean:
    case Kind::Integer:
    case Kind::Text:
    case Kind::UUID:
    case Kind::Data: return true;
    case Kind::Float:
    case Kind::Double: return std::isfinite(value.number()); // others are said in another way
    case Kind::Date: return std::isfinite(value.dateSeconds());
    default: return false;
    }
}

/// A key path from the record, compared as a whole, by size or for equality, with a plain value.
bool isPlain(NSComparisonPredicate const& comparison) {
    auto const &left = *comparison.leftExpression(), &right = *comparison.rightExpression();
    return comparison.predicateOperatorType() <= NSPredicateOperatorType::NotEqualTo &&
           comparison.comparisonPredicateModifier() == NSComparisonPredicateModifier::Direct &&
           comparison.options() == TextOptions::None && left.expressionType() == NSExpressionType::KeyPath && !left.operand() &&
           right.expressionType() == NSExpressionType::ConstantValue && isPlain(right.constantValue());
}

bool collect(NSPredicate const& predicate, Comparisons& comparisons) {
    if (auto const* compound = predicate.asCompound())
        return compound->compoundPredicateType() == NSCompoundPredicateType::And &&
               std::ranges::all_of(compound->subpredicates(), [&](auto const& part) { return collect(*part, comparisons); });
    auto const* comparison = predicate.asComparison();
    if (!comparison || comparisons.count == comparisons.list.size() || !isPlain(*comparison)) return false;
    comparisons.list[comparisons.count++] = comparison;
    return true;
}

} // namespace

Comparisons SQLiteKnownRequests::comparisonsOf(StoreQuery const& query) {
    Comparisons comparisons;
    if (!query.predicate || !collect(*query.predicate, comparisons)) return {};
    return comparisons;
}

bool SQLiteKnownRequests::Shape::fits(StoreQuery const& query, Comparisons const& comparisons) const {
    if (query.entity != entity || query.includesSubentities != includesSubentities) return false;
    if (comparisons.count != parts.size() || query.wantsKeysOnly != reading.keysOnly) return false;
    if ((query.limit != 0 || query.offset != 0) != reading.isCut) return false;
    if ((query.limit == 1) != isFirstOnly || (query.offset != 0) != hasOffset) return false;
    for (std::size_t at = 0; at < parts.size(); ++at) {
        auto const& comparison = *comparisons.list[at];
        if (comparison.predicateOperatorType() != parts[at].type || valueOf(comparison).kind() != parts[at].valueKind ||
            pathOf(comparison).text() != parts[at].path)
            return false;
    }
    auto const isSame = [](auto const& a, auto const& b) { return a == b || a->isEqual(*b); };
    return std::ranges::equal(query.sortDescriptors, order, isSame);
}

SQLiteKnownRequests::Known const* SQLiteKnownRequests::find(StoreQuery const& query, Comparisons const& comparisons) {
    if (comparisons.count == 0) return nullptr;
    for (auto const& shape : shapes_) {
        if (!shape.fits(query, comparisons)) continue;
        if (shape.forgotten != connection_.timesForgotten() || SQLite::StatementUse::isInUse(*shape.statement)) return nullptr;
        return readArguments(shape, comparisons) ? &shape : nullptr;
    }
    return nullptr;
}

bool SQLiteKnownRequests::readArguments(Shape const& shape, Comparisons const& comparisons) {
    valueCount_ = comparisons.count;
    for (std::size_t at = 0; at < comparisons.count; ++at) {
        auto value = SQLTranslation::argument(schema_, shape.parts[at].kind, valueOf(*comparisons.list[at]));
        if (!value) return false;
        values_[at] = std::move(*value);
    }
    return true;
}

void SQLiteKnownRequests::bind(Known const& known, StoreQuery const& query) const {
    bindAll(*known.statement, arguments());
    if (known.reading.isCut) bindCut(*known.statement, query, static_cast<int>(valueCount_));
}

void SQLiteKnownRequests::remember(StoreQuery const& query, Comparisons const& comparisons, std::span<Value const> arguments,
                                   Known known) {
    if (comparisons.count == 0 || arguments.size() != comparisons.count) return;
    Shape shape;
    static_cast<Known&>(shape) = known;
    shape.entity = query.entity;
    shape.includesSubentities = query.includesSubentities;
    shape.isFirstOnly = query.limit == 1;
    shape.hasOffset = query.offset != 0;
    shape.order.assign(query.sortDescriptors.begin(), query.sortDescriptors.end());
    shape.forgotten = connection_.timesForgotten();
    for (std::size_t at = 0; at < comparisons.count; ++at) {
        auto const& comparison = *comparisons.list[at];
        SQLScope scope{.entity = query.entity, .alias = "t0"};
        auto const operand = SQLPaths(schema_).operand(pathOf(comparison).components(), scope);
        if (!operand || SQLTranslation::argument(schema_, operand->kind, valueOf(comparison)) != arguments[at]) return;
        shape.parts.push_back(
            {pathOf(comparison).text(), comparison.predicateOperatorType(), valueOf(comparison).kind(), operand->kind});
    }
    auto const same = std::ranges::find_if(shapes_, [&](Shape const& each) { return each.fits(query, comparisons); });
    if (same != shapes_.end())
        *same = std::move(shape);
    else if (shapes_.size() < most)
        shapes_.push_back(std::move(shape));
    else
        shapes_[std::exchange(oldest_, (oldest_ + 1) % most)] = std::move(shape);
}

} // namespace Tessarin
