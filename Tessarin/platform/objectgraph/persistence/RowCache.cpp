#include "Tessarin/platform/objectgraph/persistence/RowCache.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"

namespace Tessarin {
namespace {

/// One more reference, unless the last has just gone and the row waits for the lock to leave.
bool retainIfAlive(std::atomic<std::uint32_t>& references, std::uint32_t oneReference) {
    auto count = references.load(std::memory_order_relaxed);
    while (count >= oneReference)
        if (references.compare_exchange_weak(count, count + oneReference, std::memory_order_acquire, std::memory_order_relaxed)) return true;
    return false;
}

} // namespace

RowRef RowCache::find(RecordKey key) const { return find(key, 0); }

RowRef RowCache::find(RecordKey key, std::uint32_t version) const {
    auto& shard = shardOf(key);
    std::lock_guard const hold(shard.mutex);
    auto* row = shard.rows.find(key);
    if (!row || row->version_ < version || !retainIfAlive(row->references_, Row::oneReference)) return {};
    return RowRef::adopt(row);
}

void RowCache::add(RowRef const& added) {
    auto* row = const_cast<Row*>(added.get());
    auto& shard = shardOf(row->key());
    std::lock_guard const hold(shard.mutex);
    auto* present = shard.rows.find(row->key());
    if (present == row) return;
    if (present && present->version_ > row->version_ && present->references_.load(std::memory_order_relaxed) >= Row::oneReference) return;
    row->references_.fetch_or(Row::cached, std::memory_order_relaxed);
    shard.rows.set(row->key(), row);
}

void RowCache::remove(RecordKey key) {
    auto& shard = shardOf(key);
    std::lock_guard const hold(shard.mutex);
    shard.rows.set(key, nullptr);
}

std::size_t RowCache::size() const {
    std::size_t count = 0;
    for (auto const& shard : shards_) {
        std::lock_guard const hold(shard.mutex);
        count += shard.rows.size();
    }
    return count;
}

void RowCache::drop(Row& row) noexcept {
    auto& shard = shardOf(row.key());
    std::lock_guard const hold(shard.mutex);
    if (shard.rows.find(row.key()) == &row) shard.rows.set(row.key(), nullptr);
}

RowSpace::RowSpace(Ref<NSManagedObjectModel> model) : model_(std::move(model)) {
    layouts_.reserve(model_->entities().size());
    for (auto const& entity : model_->entities()) layouts_.emplace_back(*this, *entity);
}

} // namespace Tessarin
