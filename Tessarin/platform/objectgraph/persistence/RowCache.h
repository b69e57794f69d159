#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/persistence/NSManagedObjectID.h"
#include "Tessarin/platform/objectgraph/persistence/Row.h"
#include "Tessarin/platform/objectgraph/persistence/UniqueConstraints.h"
#include "Tessarin/platform/runtime/SpinLock.h"
#include <array>
#include <mutex>

namespace Tessarin {

/// The newest saved row of each record that anybody still keeps. Holds them weakly: a row leaves when nobody else keeps it.
/// Any thread.
class TESSARIN_API RowCache {
public:
    /// The row of that record, or none.
    RowRef find(RecordKey key) const;
    /// The cached row when it has that version or a newer one, else none.
    RowRef find(RecordKey key, std::uint32_t version) const;
    /// Makes `row` the record's row unless a newer one stands there.
    void add(RowRef const& row);
    /// The same for many. A row that is not newer than the one that stands there is replaced in `rows` by that one; how many.
    std::size_t addAll(std::span<RowRef> rows);
    /// Forgets a record, for a deletion.
    void remove(RecordKey key);
    void removeAll();
    /// How many records it knows a row of.
    std::size_t size() const;

private:
    friend struct RowBlock;
    struct Shard {
        mutable SpinLock mutex;
        KeyTable<Row> rows; // guarded by mutex; pointers to rows that may just be dying
    };
    static constexpr std::size_t shardCount = 16;
    Shard& shardOf(RecordKey key) const noexcept { return shards_[static_cast<std::uint64_t>(key) / 4096 % shardCount]; }
    void drop(RowBlock& block) noexcept;

    mutable std::array<Shard, shardCount> shards_;
};

/// Everything that the rows of one coordinator share: their layouts, their cache, their identities. Kept by the coordinator,
/// the contexts and the change sets, so that it outlives every row.
class TESSARIN_API RowSpace {
public:
    explicit RowSpace(Ref<NSManagedObjectModel> model);

    NSManagedObjectModel& model() const noexcept { return *model_; }
    RowLayout const& layoutOf(NSEntityDescription const& entity) const noexcept { return layouts_[entity.index()]; }
    RowCache& cache() noexcept { return cache_; }
    IdentityTable& identities() const noexcept { return *identities_; }
    UniqueConstraints const& constraints() const noexcept { return constraints_; }

private:
    Ref<NSManagedObjectModel> model_;
    UniqueConstraints constraints_;
    std::vector<RowLayout> layouts_; // by entity index
    RowCache cache_;
    Ref<IdentityTable> identities_;
};

} // namespace Tessarin
