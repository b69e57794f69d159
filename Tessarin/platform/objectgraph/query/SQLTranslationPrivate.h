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
    /// What stands before the table of the entity behind FROM: "(SELECT …) AS f CROSS JOIN ", or nothing.
    std::string const& source() const noexcept { return source_; }
    /// Whether that alone says which records and in what order, so that it may be cut before their table is looked at.
    bool isAllInSource() const noexcept { return isOrderedByRank_ && conditions_.size() == 1; }
    /// The source with its order, and with `cut` behind it: as the first of all parameters its own, then those of `cut`.
    std::string sourceCutBy(std::string const& cut) const;
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
    Said withWords(std::span<SQLOperand const> texts, std::string_view words);
    /// What finds at most so many records besides those that fulfil the condition; empty where no index does.
    std::string candidates(SQLOperand const& left, NSPredicateOperatorType type, TextOptions options, std::string_view text);
    std::optional<std::vector<SQLOperand>> textsOf(NSComparisonPredicate const& predicate, SQLScope& scope);
    bool addSource(NSComparisonPredicate const& predicate);
    Said withList(SQLOperand const& left, TextOptions options, Value const& list);
    std::string parameter(Value value);

    SQLSchema const& schema_;
    SQLPaths paths_;
    SQLScope scope_;
    std::vector<std::string> conditions_; // that must all hold
    std::string order_;
    std::string source_;
    bool isOrderedByRank_ = false; // and by nothing else
    bool isRankDecided_ = false; // ranks belong to the first search that can give them
    int depth_ = 0;
    List arguments_;
    bool isReusable_ = true;
};

/// Words that are all to be found in texts of those attributes, as an expression of FTS5. The last may be the beginning of one.
std::string ftsExpression(SQLSchema const& schema, std::span<NSAttributeDescription const* const> attributes,
                          std::span<std::string const> words, bool endsInBeginning);

} // namespace Tessarin
