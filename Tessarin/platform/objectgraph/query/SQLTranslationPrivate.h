#pragma once
#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/objectgraph/query/SQLOperandPrivate.h"

namespace Tessarin {

/// Says predicates and sort descriptors in SQL, with the same answers as in memory. Values are always bound. The table of
/// the entity is called `t0`.
class TESSARIN_API SQLTranslation {
public:
    SQLTranslation(SQLSchema const& schema, NSEntityDescription const& entity);

    /// Adds a condition. False when it could not all be said: what `condition()` lets through must then be filtered again.
    bool addPredicate(NSPredicate const& predicate);
    /// Adds an order. False, and nothing is added, when one of the descriptors cannot be said.
    bool addOrder(std::span<Ref<NSSortDescriptor> const> descriptors);

    std::string const& joins() const noexcept { return scope_.joins; }
    std::string condition() const; // empty: none
    std::string const& order() const noexcept { return order_; }         // empty: none; else ends in the key
    /// What is bound to the parameters, in their order: integers, doubles, texts and data.
    List const& arguments() const noexcept { return arguments_; }
    /// Whether the text is worth keeping prepared: not with a long list in it.
    bool isReusable() const noexcept { return isReusable_; }
    /// What a value is bound as where it is compared, by size or for equality, with an expression of that kind; absent where
    /// the comparison binds nothing.
    static std::optional<Value> argument(SQLSchema const& schema, SQLKind kind, Value const& value);

private:
    using Said = std::optional<std::string>; // a condition, NULL counting as false; absent: cannot be said
    Said said(NSPredicate const& predicate, SQLScope& scope);
    Said said(NSCompoundPredicate const& predicate, SQLScope& scope);
    Said said(NSComparisonPredicate const& predicate, SQLScope& scope);
    Said compared(NSComparisonPredicate const& predicate, SQLOperand const& left, NSPredicateOperatorType type,
                  NSExpression const& right, SQLScope& scope);
    Said withMembers(NSComparisonPredicate const& predicate, std::span<std::string const> path, NSPredicateOperatorType type,
                     NSComparisonPredicateModifier modifier, Value const& value, SQLScope& scope);
    Said withValue(SQLOperand const& left, NSPredicateOperatorType type, TextOptions options, Value const& value);
    Said withOperand(SQLOperand const& left, NSPredicateOperatorType type, TextOptions options, SQLOperand const& right) const;
    Said withText(SQLOperand const& left, NSPredicateOperatorType type, TextOptions options, std::string_view text);
    Said withList(SQLOperand const& left, TextOptions options, Value const& list);
    std::string parameter(Value value);

    SQLSchema const& schema_;
    SQLPaths paths_;
    SQLScope scope_;
    std::vector<std::string> conditions_; // that must all hold
    std::string order_;
    int depth_ = 0;
    List arguments_;
    bool isReusable_ = true;
};

} // namespace Tessarin
