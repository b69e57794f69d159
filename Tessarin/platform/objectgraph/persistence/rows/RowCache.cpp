#include "Tessarin/platform/objectgraph/persistence/rows/RowCachePrivate.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"

// Every shard has a lock, which is held for a few instructions; nobody holds two at once, and no row is released while one is
// held, since its end takes the lock again. The table keeps plain pointers. A block whose count has come to 0 may stand in it
// for a moment: it is freed only after `drop` has taken its rows out, under the same locks, so a pointer found there leads to
// memory that is still whole, and `retainIfAlive` tells by the count, never from 0 upwards, whether the row may be had. It
// acquires, so that whoever gets the row sees its content. `isCached` is written relaxed by somebody who holds a reference: the
// release of that reference and the acquire of the last one, which destroys, order it before the question. `now_` is written
// with release after the store's commit and the marks, and read with acquire before a reader's transaction begins: a reader
// that sees a moment sees every commit up to it. Marks are read and written under the shard's lock only.
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
        shard.markAll(next());
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
    for (auto* row = block.first(); row; row = block.after(*row)) hold.moveTo(shardOf(row->key_)).rows.remove(row->key_, row);
}

RowSpace::RowSpace(Ref<NSManagedObjectModel> model)
    : model_(std::move(model)), constraints_(*model_), identities_(std::make_shared<IdentityTable>(model_)) {
    layouts_.reserve(model_->entities().size());
    for (auto const& entity : model_->entities()) layouts_.emplace_back(*this, *entity);
}

} // namespace Tessarin
