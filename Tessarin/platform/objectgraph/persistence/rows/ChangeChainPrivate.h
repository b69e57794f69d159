#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowConflictsPrivate.h"
#include <algorithm>
#include <vector>

namespace Tessarin {

/// What several sets do to one record, one after another.
struct ChangeChain {
    std::vector<RecordChange const*> steps;
    std::vector<std::size_t> sets; // of each step
    bool isInserted = false; // by one of the sets: nobody else can know it
    bool isBroken = false;   // a step was not made on the one before it
    bool isDeleted = false;  // by one of the sets, which was a record: who inserts it then brings it back

    RowRef const& base() const { return steps.front()->before; }
    std::uint32_t version() const {
        std::uint32_t highest = 0;
        for (auto const* step : steps)
            for (auto const* row : {step->before.get(), step->after.get()})
                if (row) highest = std::max(highest, row->version());
        return highest;
    }
    void add(RecordChange const& change, std::size_t set) {
        if (!steps.empty() && change.entity != steps.front()->entity)
            throwDamaged(*change.entity, *steps.front()->entity, change.key);
        if (!steps.empty() && (change.kind != RecordChange::Kind::Insert || steps.back()->after))
            isBroken = isBroken || change.before != steps.back()->after;
        bool const isOfNew = !steps.empty() && base() && showsNewRecord(*base());
        bool const isFirst = steps.empty() || isOfNew || (steps.back()->after && !isDeleted);
        isInserted = isInserted || (change.kind == RecordChange::Kind::Insert && isFirst);
        isDeleted = isDeleted || change.kind == RecordChange::Kind::Delete;
        steps.push_back(&change);
        sets.push_back(set);
    }
    /// The set that deleted the record in the end: the first one, where several did.
    std::size_t deletedIn() const {
        auto at = steps.size() - 1;
        while (at > 0 && !steps[at - 1]->after) --at;
        return sets[at];
    }
    /// The last set in which a reference let go of a record; the first one when none says so.
    std::size_t letGoIn(std::size_t cell, RecordKey destination) const {
        for (std::size_t at = steps.size(); at-- > 0;) {
            auto const &before = steps[at]->before, &after = steps[at]->after;
            if (before && after && before->reference(cell) == destination && after->reference(cell) != destination)
                return sets[at];
        }
        return sets.front();
    }
    /// The steps again, on top of `row`. What was deleted stays so unless it is inserted again.
    RowRef on(RowRef row) const {
        for (auto const* step : steps) {
            if (step->kind != RecordChange::Kind::Update)
                row = step->after;
            else if (row)
                row = row == step->before ? step->after : mergedRow(*step->before, *step->after, *row);
        }
        return row;
    }
};

} // namespace Tessarin
