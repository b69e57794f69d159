#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeQuestionsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/CommitLogPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/OthersChangesPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"
#include "Tessarin/platform/objectgraph/persistence/stores/IdentityTablePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyTablePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/UniqueConstraintsPrivate.h"
#include "Tessarin/platform/runtime/SpinLock.h"
#include <array>
#include <atomic>
#include <mutex>

namespace Tessarin {

/// The newest saved row of each record that anybody still keeps. Holds them weakly: a row leaves when nobody else keeps it.
/// Any thread.
///
/// A slow reader may come with a row that a commit has replaced meanwhile, and find no newer one here, since nobody keeps that.
/// So each commit marks the records that it changed, and what was read as of an earlier moment is not taken for them. The marks
/// are few, shared by records by their keys: a row that is turned away without need is only read once more.
class TESSARIN_API RowCache {
public:
    /// Counts commits.
    using Moment = std::uint64_t;
    static constexpr Moment always = UINT64_MAX;
    /// For a reader, before it looks at what is stored: it sees all commits up to this moment.
    Moment now() const noexcept { return now_.load(std::memory_order_acquire); }

    /// The row of that record, or none.
    RowRef find(RecordKey key) const;
    /// The cached row when it has that version or a newer one, else none.
    RowRef find(RecordKey key, std::uint32_t version) const;
    /// Makes rows that were read the records' rows unless newer ones stand there: these replace them in `rows`; how many.
    std::size_t addAll(std::span<RowRef> rows, Moment asOf);
    /// One was saved; forgets a record that was deleted, or that somebody beyond this coordinator has changed; forgets all. `endCommit`
    /// follows, after the store's own commit.
    void add(RowRef const& row);
    void remove(RecordKey key);
    void removeAll();
    void endCommit() noexcept { now_.fetch_add(1, std::memory_order_release); }
    /// How many records it knows a row of.
    std::size_t size() const;

private:
    friend struct RowBlock;
    struct Shard {
        mutable SpinLock mutex;
        KeyTable<Row> rows; // guarded by mutex, like what follows; pointers to rows that may just be dying
        using Marks = std::array<Moment, 128>;
        std::unique_ptr<Marks> marks; // by key: the commit that last changed such a record; made for the first
        Moment newestMark = 0;

        Moment& markOf(RecordKey key) {
            if (!marks) marks = std::make_unique<Marks>();
            return (*marks)[static_cast<std::uint64_t>(key) % marks->size()];
        }
        void mark(RecordKey key, Moment moment) { markOf(key) = newestMark = moment; }
        void markAll(Moment moment) {
            if (!marks) marks = std::make_unique<Marks>();
            marks->fill(newestMark = moment);
        }
        bool isOutdated(RecordKey key, Moment asOf) { return asOf < newestMark && asOf < markOf(key); }
    };
    static constexpr std::size_t shardCount = 16;
    Shard& shardOf(RecordKey key) const noexcept { return shards_[static_cast<std::uint64_t>(key) / 4096 % shardCount]; }
    Moment next() const noexcept { return now_.load(std::memory_order_relaxed) + 1; }
    void drop(RowBlock& block) noexcept;

    std::atomic<Moment> now_{0};
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
    ChangeQuestions& questions() noexcept { return questions_; }
    CommitLog& commits() noexcept { return commits_; }
    OthersChanges& others() noexcept { return others_; }

private:
    Ref<NSManagedObjectModel> model_;
    UniqueConstraints constraints_;
    std::vector<RowLayout> layouts_; // by entity index
    RowCache cache_;
    ChangeQuestions questions_;
    CommitLog commits_;
    OthersChanges others_;
    Ref<IdentityTable> identities_;
};

} // namespace Tessarin
