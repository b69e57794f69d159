#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/NSError.h"
#include "Tessarin/platform/objectgraph/persistence/KeyTable.h"
#include <atomic>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Tessarin {

class NSPersistentStore;

/// The permanent keys of records that other contexts may know by their temporary ones, because they were visible to child
/// contexts before they were saved. Each context goes through the log when it next does something. Any thread.
class TESSARIN_API KeyPromotions {
public:
    using Log = std::vector<std::pair<RecordKey, RecordKey>>;

    /// The permanent key of that record, given out now if it has none yet; 0 with an error.
    RecordKey permanentKey(RecordKey temporary, NSPersistentStore& store, Ref<NSError>& error);
    /// What came to the log since it had `seen` entries.
    Log since(std::size_t seen) const;
    std::size_t count() const noexcept { return count_.load(std::memory_order_acquire); }

private:
    mutable std::mutex mutex_;
    Log log_;                                           // guarded by mutex_, like what follows
    std::unordered_map<RecordKey, RecordKey> permanent_;
    std::atomic<std::size_t> count_{0};                 // of the log, to be looked at without the lock
};

} // namespace Tessarin
