#pragma once
#include "Tessarin/platform/queues/engine/DispatchQueue.h"
#include <atomic>
#include <cstdint>
#include <mutex>
#include <sys/types.h>

namespace Tessarin::engine {

class Pool;

/// One thread of a pool.
class Worker {
public:
    Worker(Pool& owner, bool overTheCap) noexcept : pool(owner), isExtra(overTheCap) {}

    /// What it is called for: to look for work, or to take turns over the cap.
    enum Role : std::uint32_t { NotCalled, Searcher, Extra };

    Pool& pool;
    std::atomic<std::uint32_t> called = NotCalled; // what it sleeps on
    /// What it will run next, a list: queues that it made runnable, or a few items taken at once from a long backlog. The
    /// monitor takes them away when they stay too long, and so does a worker that finds nothing else.
    std::atomic<WorkItem*> kept = nullptr;
    std::atomic<std::uint32_t> keptCount = 0; // of the times that it was changed
    std::atomic<std::uint32_t> keptLength = 0; // the worker's, like the next; both mean nothing while the list is empty
    WorkItem* lastKept = nullptr;
    std::uint32_t keptCountSeen = 0; // the monitor's
    pid_t thread = 0;
    Nanoseconds searchTime = longestSearch; // the worker's; see Pool::search

    static constexpr Nanoseconds longestSearch = 10'000;

    // Guarded by the pool's lock:
    Worker* nextSleeper = nullptr;
    Worker* next = nullptr;
    bool sleeps = false;
    bool isExtra; // over the cap, for turns of serial queues; written by the worker itself, or while it sleeps
    std::uint64_t turnsSeen = 0; // an extra's: turns that others had taken when it came
    std::atomic<bool> blocked = false; // said so, or the monitor found it asleep inside an item
};

/// The threads of one quality of service. There are as many running workers as processors; a worker that blocks makes room for
/// another one. Idle workers sleep, and end after a few seconds. A submission wakes nobody while a searching worker is about
/// to look, and there is at most one of those; it wakes the next when it has found something and there is more.
///
/// A serial queue does not wait for others that compute: when the turns of such queues stand still for half a millisecond, extra
/// workers over the cap take them, one at first and twice as many at each further half millisecond, up to some hundreds. An extra
/// leaves after its turn as soon as the others make headway again. What concurrent and global queues run stays under the cap.
///
/// Any thread submits, by pushing at the inbox with one compare-and-swap. Whoever needs work takes all of it under the lock and
/// puts it in line. What a worker keeps is one word: only that worker fills it, and anybody empties it, by an exchange that also
/// hands over what its items are. That no item is left behind while everybody sleeps rests on one order: a submitter writes the
/// inbox and then looks at `searching_` and `mayWake_`; who changes these looks at the inbox afterwards. All four are
/// sequentially consistent, so one of the two sees the other. What a worker keeps needs no such care, since the worker is awake,
/// and the monitor comes for what it does not run.
class Pool {
public:
    constexpr Pool(DispatchQueue& queue, char const* name, int niceness) noexcept
        : queue_(queue), name_(name), niceness_(niceness) {}
    Pool(Pool const&) = delete;
    Pool& operator=(Pool const&) = delete;

    void submit(WorkItem* item) noexcept;
    /// For an item that drains a queue: a worker of this pool keeps the last one for itself, while it is still warm.
    void submitQueue(WorkItem* item) noexcept;

    /// Runs an item of the pool on a thread that is none of its workers.
    void runOn(WorkItem* item) noexcept;

    /// Others have waited for some milliseconds: a worker with a long queue is to put it back in line.
    bool wantsWorkersBack() const noexcept { return wantsWorkersBack_.load(std::memory_order_relaxed); }

    void workerBlocks(Worker& worker) noexcept;
    /// Counts the worker as running again, if it was not.
    void workerResumes(Worker& worker) noexcept;

    /// How soon the monitor is to come again.
    enum class Visit { NotNeeded, Later, Soon };
    /// The monitor's visit: takes kept items that nobody runs, finds blocked workers, and sends extra ones where turns stand
    /// still.
    Visit inspect(Nanoseconds now) noexcept;

private:
    static void* threadMain(void* worker);
    void run(Worker& worker) noexcept;
    WorkItem* takeKept(Worker& worker) noexcept;
    WorkItem* take(Worker& worker) noexcept;
    WorkItem* takeTurn(Worker& worker) noexcept;
    WorkItem* search(Worker& worker) noexcept;
    bool giveUpKept(Worker& worker) noexcept;
    bool keep(Worker& worker, WorkItem* item) noexcept;
    void stealKept() noexcept;
    void stopSearching() noexcept;
    bool sleep(Worker& worker, bool searching) noexcept;
    void leaveSleepers(Worker& worker) noexcept;
    void forget(Worker& worker) noexcept;

    void pushInbox(WorkItem* oldest, WorkItem* newest) noexcept;
    void pushAll(WorkItem* items) noexcept;
    void wakeIfUseful() noexcept;
    void wakeOne() noexcept;
    bool call(Worker::Role role, std::unique_lock<Lock>& hold) noexcept;
    // Under the lock:
    void sortInbox() noexcept;
    bool mayTakeTurns() const noexcept;
    bool hasQueued() const noexcept {
        return !backlog_.empty() || (!turns_.empty() && mayTakeTurns()) || inbox_.load(std::memory_order_seq_cst);
    }
    void updateCounts() noexcept;
    bool collectKept() noexcept;
    bool findBlocked() noexcept;
    int extrasWanted(Nanoseconds now) noexcept;
    void callExtras(int count) noexcept;

    std::atomic<WorkItem*> inbox_ = nullptr; // newest first
    alignas(64) std::atomic<int> searching_ = 0;
    std::atomic<bool> mayWake_ = true; // fewer workers run than may
    std::atomic<bool> tooManyRun_ = false; // blocked ones have come back
    std::atomic<bool> wantsWorkersBack_ = false;

    alignas(64) Lock lock_; // guards the rest
    ItemLine backlog_; // what was in the inbox before, but for:
    ItemLine turns_;   // of serial queues
    bool turnIsNext_ = false;
    Worker* sleepers_ = nullptr;
    Worker* workers_ = nullptr;
    int running_ = 0; // without extras
    int extras_ = 0;
    int sleeping_ = 0;
    int threads_ = 0;
    std::uint64_t taken_ = 0;
    std::uint64_t takenSeen_ = 0;
    Nanoseconds stalledSince_ = 0;
    std::uint64_t turnsTaken_ = 0; // not by extras
    std::uint64_t turnsTakenSeen_ = 0;
    Nanoseconds turnsStandSince_ = 0;
    int nextExtras_ = 1;

    DispatchQueue& queue_;
    char const* const name_;
    int const niceness_;
};

class GlobalQueue : public DispatchQueue {
public:
    constexpr GlobalQueue(char const* label, char const* threadName, int niceness) noexcept
        : DispatchQueue(Kind::Global, label, nullptr), pool(*this, threadName, niceness) {}
    Pool pool;
};

/// How many workers may run at a time: as many as the process may use processors, and two where that is one.
int processorCount() noexcept;
/// The queue of a class or priority number; null for others.
GlobalQueue* globalQueue(std::intptr_t identifier) noexcept;
/// Visits all pools; see Pool::inspect.
Pool::Visit inspectPools(Nanoseconds now) noexcept;

} // namespace Tessarin::engine
