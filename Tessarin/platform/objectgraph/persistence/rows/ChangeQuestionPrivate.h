#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/RowConditionPrivate.h"
#include <cstddef>
#include <vector>

namespace Tessarin {

class NSAttributeDescription;
class NSEntityDescription;
class NSRelationshipDescription;
class NSSortDescriptor;

/// What is asked of the records that a change set inserts and updates: those with a value of an attribute, or those of an entity
/// (with its sub-entities) that fulfil a condition, perhaps only the first ones in an order.
struct ChangeQuestion {
    NSAttributeDescription const* equal = nullptr; // or
    NSEntityDescription const* entity = nullptr;
    Ref<NSPredicate const> condition;         // that rows can answer; null: all records
    RowLink link;                             // that the condition asks for, too
    std::vector<Ref<NSSortDescriptor>> order; // by stored attributes
    std::size_t count = 0;                    // of the first in the order; 0: all are wanted, in any order

    /// Of whose records it is asked.
    NSEntityDescription const& tree() const;
    /// But for the count.
    bool isAlike(ChangeQuestion const& other) const;
};

} // namespace Tessarin
