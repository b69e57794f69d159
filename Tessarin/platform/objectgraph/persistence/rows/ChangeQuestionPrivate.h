#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/RowConditionPrivate.h"
#include <cstddef>
#include <vector>

namespace Tessarin {

class NSAttributeDescription;
class NSEntityDescription;
class NSRelationshipDescription;
class NSSortDescriptor;
class SearchRanking;
struct RankedSearch;

/// What is asked of the records that a change set inserts and updates: those of an entity (with its sub-entities) that fulfil a
/// condition, perhaps only the first ones in an order. Without an entity for nothing but what an index says of an attribute or a
/// link.
struct ChangeQuestion {
    NSAttributeDescription const* equal = nullptr; // that the condition asks for, too
    Value equalTo;
    NSEntityDescription const* entity = nullptr;
    Ref<NSPredicate const> condition;         // that rows can answer; null: all records
    RowLink link;                             // that the condition asks for, too
    std::vector<Ref<NSSortDescriptor>> order; // by stored attributes, or by rank
    std::size_t count = 0;                    // of the first in the order; 0: all are wanted, in any order
    Ref<RankedSearch const> search;           // of the condition, whose ranks the order asks for; null: it asks for none
    Ref<SearchRanking const> ranking;         // by what the store knows of its words; null while it was not asked

    static constexpr std::size_t few = 64; // records that an index leads to: they are looked at one by one

    /// Of whose records it is asked.
    NSEntityDescription const& tree() const;
    /// But for the count and the ranking.
    bool isAlike(ChangeQuestion const& other) const;
};

} // namespace Tessarin
