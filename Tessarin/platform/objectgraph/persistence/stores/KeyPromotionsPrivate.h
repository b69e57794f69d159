#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyAliasesPrivate.h"
#include <atomic>
#include <deque>
#include <mutex>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Tessarin {

class NSPersistentStore;

/// The permanent keys of records that other contexts may know by their temporary ones, because they were visible to child
/// contexts before they were saved. Each context goes through the log when it next does something; what all of them have
/// gone through leaves the log. Any thread.
class TESSARIN_API KeyPromotions {
public:
    using Log = std::vector<std::pair<RecordKey, RecordKey>>;

    /// The permanent key of that record, given out now if it has none yet; 0 with an error.
    RecordKey permanentKey(RecordKey temporary, NSPersistentStore& store, Ref<NSError>& error);
    /// The permanent key of that record if it has one, else 0.
    RecordKey permanentKey(RecordKey temporary) const;

    /// The temporary key under which a record may still stand in what a context shows, or 0.
    RecordKey temporaryKey(RecordKey permanent) const;

    /// A context begins to follow the log, at its end. Gives how much it has seen, which it keeps for `advance` and `leave`.
    std::size_t join();
    /// What came to the log since it was `seen` last.
    Log advance(std::size_t& seen);
    void leave(std::size_t seen);
    /// How much came to the log in all.
    std::size_t count() const noexcept { return count_.load(std::memory_order_acquire); }

private:
    void forgetSeen();

    mutable std::mutex mutex_;
    KeyAliases permanent_;                               // guarded by mutex_, like what follows
    std::deque<std::pair<RecordKey, RecordKey>> log_;    // its last entries
    std::unordered_map<RecordKey, RecordKey> temporary_; // of those entries, by permanent key
    std::multiset<std::size_t> seen_;                    // of each context that follows
    std::atomic<std::size_t> count_{0};                  // of all entries, to be looked at without the lock
};

} // namespace Tessarin
