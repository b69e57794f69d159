#pragma once
#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <vector>

namespace Tessarin {

/// A to-one relationship that leads to one of some records, by the keys that rows may know them by.
struct RowLink {
    NSRelationshipDescription const* relationship = nullptr;
    std::vector<RecordKey> keys;
};

/// What of a predicate the rows of an entity can answer by themselves, on any thread: conditions on its stored attributes, and
/// that a to-one relationship leads to a certain record, or to one of several.
struct RowCondition {
    Ref<NSPredicate const> predicate; // for `RowEvaluation`; null: they can answer nothing of it
    bool isWhole = false;             // it is all of the predicate, not only some of the conditions that must all hold
    RowLink link;                     // one that the predicate asks for; none where it asks for none
};
/// `keysOf` gives the keys of the record that a constant stands for; none where it stands for none.
RowCondition rowConditionOf(Ref<NSPredicate> const& predicate, NSEntityDescription const& entity,
                            FunctionRef<std::vector<RecordKey>(Value const&)> keysOf);

/// Asks rows whether they fulfil such a condition, one after the other. On one thread.
class RowEvaluation {
public:
    explicit RowEvaluation(NSPredicate const& condition);
    ~RowEvaluation();
    RowEvaluation(RowEvaluation const&) = delete;
    RowEvaluation& operator=(RowEvaluation const&) = delete;
    bool isFulfilledBy(Row const& row) const;

private:
    class Values;
    NSPredicate const& condition_;
    Ref<Values> values_; // one for all rows
    Value const asValue_;
};

/// The stored value of the attribute of that name, of a to-one relationship the key; absent where the row's entity has none.
Value storedValue(Row const& row, std::string_view name);

} // namespace Tessarin
