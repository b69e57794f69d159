#include "Tessarin/platform/objectgraph/persistence/stores/RefusedSetsPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/sqlite/Failure.h"

#include <algorithm>
#include <sqlite3.h>

namespace Tessarin {

bool isRefusedForGood(NSError const& error) {
    if (error.domain() == ObjectGraphErrorDomain)
        return error.code() == static_cast<std::int64_t>(StoreErrorCode::ConstraintConflict) ||
               error.code() == static_cast<std::int64_t>(StoreErrorCode::NeedsRefused);
    if (error.domain() != NSSQLiteErrorDomain) return false;
    auto const primary = error.code() & 0xFF;
    return primary == SQLITE_CONSTRAINT || primary == SQLITE_TOOBIG || primary == SQLITE_MISMATCH;
}

void RefusedRecords::add(ChangeSet const& set) {
    for (auto const& change : set.changes()) {
        if (change.kind == RecordChange::Kind::Insert)
            inserted_.insert(change.key);
        else if (change.changesRow())
            changed_.insert(change.key);
    }
}

bool RefusedRecords::areNeededBy(ChangeSet const& set) const {
    if (empty()) return false;
    auto const isInserted = [&](RecordKey key) { return inserted_.contains(key); };
    auto const leadsThere = [&](RecordChange const& change) {
        if (std::ranges::any_of(change.relationships,
                                [&](auto const& each) { return std::ranges::any_of(each.added, isInserted); }))
            return true;
        if (!change.after || !change.changesRow()) return false;
        auto const cells = change.after->layout().cells();
        for (std::size_t cell = 0; cell < cells.size(); ++cell)
            if (cells[cell].type == CellType::Reference && isInserted(change.after->reference(cell))) return true;
        return false;
    };
    return std::ranges::any_of(set.changes(), [&](RecordChange const& change) {
        return isInserted(change.key) || (change.changesRow() && changed_.contains(change.key)) || leadsThere(change);
    });
}

Ref<NSError> needsRefusedError() {
    return storeError(StoreErrorCode::NeedsRefused, "The changes need others that the store has refused.");
}

Ref<NSError> findRefusedSets(std::span<Ref<ChangeSet const> const> sets,
                             FunctionRef<Ref<NSError>(Ref<ChangeSet const> const&)> tryOne, std::vector<RefusedSet>& refused) {
    RefusedRecords records;
    for (std::size_t at = 0; at < sets.size(); ++at) {
        auto reason = records.areNeededBy(*sets[at]) ? needsRefusedError() : tryOne(sets[at]);
        if (!reason) continue;
        if (!isRefusedForGood(*reason)) return reason;
        records.add(*sets[at]);
        refused.push_back({at, std::move(reason)});
    }
    return nullptr;
}

} // namespace Tessarin
