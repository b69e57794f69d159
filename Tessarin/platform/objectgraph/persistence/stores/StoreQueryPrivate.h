#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyRangePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStore.h"
#include <atomic>
#include <span>
#include <vector>

namespace Tessarin {

class NSPredicate;
class NSSortDescriptor;

/// A question to a store.
struct StoreQuery {
    NSEntityDescription const* entity = nullptr;
    bool includesSubentities = true;
    NSPredicate const* predicate = nullptr; // null: every record
    std::span<Ref<NSSortDescriptor> const> sortDescriptors;
    std::size_t limit = 0; // 0: no limit
    std::size_t offset = 0;
    bool wantsKeysOnly = false; // a complete answer may give `keys` in place of `rows`
    std::span<KeyRange const> without = {}; // only in counts: records that are left out, in order
    std::atomic<bool> const* isGivenUp = nullptr; // only in fetches: set by any thread, it ends them with whatever error
};

/// A store's answer: `complete` when the store applied predicate, order, limit and offset; otherwise `rows` holds at least
/// every record that fits and the asker filters, sorts and cuts.
struct StoreAnswer {
    std::vector<RowRef> rows;
    std::vector<RecordKey> keys;
    bool complete = true;
};

} // namespace Tessarin
