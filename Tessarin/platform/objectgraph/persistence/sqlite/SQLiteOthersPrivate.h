#pragma once
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteHistoryWriterPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteNoticePrivate.h"
#include "Tessarin/platform/queues/Dispatch.h"
#include <atomic>
#include <mutex>

namespace Tessarin {

/// Notices that others, processes or coordinators, have saved to a store's file: their notice is watched, and a save of this store
/// finds out by the number of its own transaction whether others came in between. Then a look is begun, on a queue of its own, one
/// at a time. Where files cannot be watched, each save and fetch begins one. Any thread.
class TESSARIN_API SQLiteOthers : public std::enable_shared_from_this<SQLiteOthers> {
public:
    /// Looks at what follows that transaction; gives up to which one it has.
    using Look = Closure<std::int64_t(std::int64_t after)>;

    SQLiteOthers(std::string const& database, std::int64_t newest) : path_(database), notice_(database), seen_(newest) {}

    /// Watches from now on. `mayMake`: the notice, where it is missing.
    void begin(bool mayMake, Look look);
    /// This store has saved. `isAlone`: nobody else has committed since it did so before, also nothing that the history does not tell.
    void noteSaved(SQLiteHistoryWriter::Written written, bool isAlone);
    /// It is used: of interest where nothing is watched.
    void noteUsed() {
        if (isBlind_.load(std::memory_order_relaxed)) schedule();
    }
    /// Nothing is looked at any more; a look may still be under way.
    void end();

private:
    void watch();
    void watchAgain();
    Ref<FileWatch> watched(bool mayMake, int& problem);
    void schedule();
    void look();

    std::string const path_;
    SQLiteNotice const notice_;
    dispatch_queue_t const queue_ = dispatch_queue_create("store's other processes", DISPATCH_QUEUE_SERIAL);
    bool mayMake_ = false; // constant after `begin`, as what follows
    Look look_;
    std::atomic<std::int64_t> seen_; // the newest transaction that is known
    std::atomic<bool> isScheduled_{false}, isBlind_{false}, isOver_{false};
    std::atomic<bool> isLost_{false}; // the notice was removed: the next save, here or elsewhere, makes another one
    std::mutex mutex_; // guards what follows
    Ref<FileWatch> watch_, making_; // the other one while the notice is lost
    bool hasTold_ = false;
};

} // namespace Tessarin
