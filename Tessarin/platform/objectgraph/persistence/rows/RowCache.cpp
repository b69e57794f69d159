#include "Tessarin/platform/objectgraph/persistence/rows/RowCachePrivate.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"

namespace Tessarin {
namespace {

/// The lock of one shard after the other; neighbouring keys mostly share one.
template <class Shard> class ShardHold {
public:
    ShardHold() = default;
    ShardHold(ShardHold const&) = delete;
    ShardHold& operator=(ShardHold const&) = delete;
    ~ShardHold() {
        if (shard_) shard_->mutex.unlock();
    }
    Shard& moveTo(Shard& shard) {
        if (shard_ == &shard) return shard;
        if (shard_) shard_->mutex.unlock();
        shard_ = &shard;
        shard.mutex.lock();
        return shard;
    }

private:
    Shard* shard_ = nullptr;
};

} // namespace

RowRef RowCache::find(RecordKey key) const { return find(key, 0); }

RowRef RowCache::find(RecordKey key, std::uint32_t version) const {
    auto& shard = shardOf(key);
    std::lock_guard const hold(shard.mutex);
    auto* row = shard.rows.find(key);
    if (!row || row->version_ < version || !row->block().retainIfAlive()) return {};
    return RowRef::adopt(row);
}

void RowCache::add(RowRef const& added) {
    RowRef row = added;
    {
        auto& shard = shardOf(row->key());
        std::lock_guard const hold(shard.mutex);
        shard.mark(row->key(), next());
    }
    addAll({&row, 1}, always);
}

std::size_t RowCache::addAll(std::span<RowRef> rows, Moment asOf) {
    std::vector<RowRef> replaced; // to be released when no lock is held
    {
        ShardHold<Shard> hold;
        for (auto& each : rows) {
            auto* row = const_cast<Row*>(each.get());
            auto& shard = hold.moveTo(shardOf(row->key_));
            if (shard.isOutdated(row->key_, asOf)) continue;
            auto place = shard.rows.place(row->key_);
            auto* const present = place.value();
            if (present == row) continue;
            if (present && present->version_ >= row->version_ && present->block().retainIfAlive()) {
                replaced.push_back(std::exchange(each, RowRef::adopt(present)));
                continue;
            }
            row->block().isCached.store(true, std::memory_order_relaxed);
            place.set(*row);
        }
    }
    return replaced.size();
}

void RowCache::remove(RecordKey key) {
    auto& shard = shardOf(key);
    std::lock_guard const hold(shard.mutex);
    shard.mark(key, next());
    shard.rows.set(key, nullptr);
}

void RowCache::removeAll() {
    for (auto& shard : shards_) {
        KeyTable<Row> gone; // freed without the lock
        std::lock_guard const hold(shard.mutex);
        shard.marks.fill(next());
        shard.newestMark = next();
        std::swap(shard.rows, gone);
    }
}

std::size_t RowCache::size() const {
    std::size_t count = 0;
    for (auto const& shard : shards_) {
        std::lock_guard const hold(shard.mutex);
        count += shard.rows.size();
    }
    return count;
}

void RowCache::drop(RowBlock& block) noexcept {
    ShardHold<Shard> hold;
    for (auto* row = block.first(); row; row = block.after(*row))
        hold.moveTo(shardOf(row->key_)).rows.remove(row->key_, row);
}

RowSpace::RowSpace(Ref<NSManagedObjectModel> model)
    : model_(std::move(model)), constraints_(*model_), identities_(std::make_shared<IdentityTable>(model_)) {
    layouts_.reserve(model_->entities().size());
    for (auto const& entity : model_->entities()) layouts_.emplace_back(*this, *entity);
}

} // namespace Tessarin
