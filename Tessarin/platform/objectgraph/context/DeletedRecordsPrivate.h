#pragma once
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include "Tessarin/platform/objectgraph/persistence/stores/BatchChangePrivate.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

namespace Tessarin {

/// Which records a deletion of everything deleted, as runs of keys: millions of records that were made one after the other are
/// a few runs.
class DeletedRecords {
public:
    DeletedRecords() = default;
    /// Ordered by the index of the tree's root entity, then by key.
    explicit DeletedRecords(std::vector<RecordRun> runs) : runs_(std::move(runs)) {}

    std::vector<RecordRun> const& runs() const noexcept { return runs_; }
    bool contains(NSEntityDescription const& entity, RecordKey key) const {
        auto const place = std::pair{entity.rootEntity()->index(), key};
        auto const next = std::ranges::upper_bound(
            runs_, place, {}, [](RecordRun const& run) { return std::pair{run.entity->rootEntity()->index(), run.first}; });
        if (next == runs_.begin()) return false;
        auto const& run = *std::prev(next);
        return run.entity->rootEntity() == entity.rootEntity() && run.last >= key;
    }

private:
    std::vector<RecordRun> runs_;
};

} // namespace Tessarin
