#include "Tessarin/platform/queues/engine/Pool.h"

#include "Tessarin/platform/queues/engine/ItemDepot.h"
#include "Tessarin/platform/queues/engine/OwnRun.h"
#include "Tessarin/platform/queues/engine/Processors.h"
#include "Tessarin/platform/queues/engine/Thread.h"
#include "Tessarin/platform/queues/engine/ThreadStart.h"
#include "Tessarin/platform/queues/engine/Timekeeper.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include <algorithm>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Tessarin::engine {
namespace {

constexpr Nanoseconds quietTime = 300'000'000;
constexpr Nanoseconds idleTime = 4'000'000'000;
constexpr int mostThreads = 512;
constexpr int mostBlockedByTurns = 16; // further threads under the cap are for global and concurrent queues

} // namespace

int processorCount() noexcept {
    static int const count = std::max(usableProcessors(), 2);
    return count;
}

/// A list from its newest to its oldest, or one item.
void Pool::pushInbox(WorkItem* oldest, WorkItem* newest) noexcept {
    auto* first = inbox_.load(std::memory_order_relaxed);
    do oldest->setNext(first);
    while (!inbox_.compare_exchange_weak(first, newest, std::memory_order_seq_cst, std::memory_order_relaxed));
}

void Pool::submit(WorkItem* item) noexcept {
    pushInbox(item, item);
    wakeIfUseful();
}

void Pool::submitQueue(WorkItem* item) noexcept {
    auto* const worker = thisThread.worker;
    if (worker && worker->isExtra) return submit(item); // it keeps nothing: it is to leave soon
    if (!worker || &worker->pool != this) {
        auto* const catching = thisThread.catching;
        if (!catching || catching->item || niceness_ > 0) return submit(item);
        *catching = {item, this};
        return;
    }
    bool const gaveUp = keep(*worker, item);
    callMonitor();
    if (gaveUp) wakeIfUseful();
}

/// Puts the item behind what the worker keeps. All of that goes to others before, and true is the result, when some of them have
/// nothing to do or when it is long: serial queues that feed one another hardly need the pool ("hops", all to all).
bool Pool::keep(Worker& worker, WorkItem* item) noexcept {
    constexpr std::uint32_t mostKept = 16;
    item->setNext(nullptr);
    auto* first = worker.kept.exchange(nullptr, std::memory_order_acq_rel);
    auto const length = first ? worker.keptLength.load(std::memory_order_relaxed) : 0;
    bool const othersAreIdle = mayWake_.load(std::memory_order_relaxed) || searching_.load(std::memory_order_relaxed) > 0;
    bool const givesUp = length >= mostKept || (first && othersAreIdle);
    if (givesUp) pushAll(std::exchange(first, nullptr));
    first ? worker.lastKept->setNext(item) : void(first = item);
    worker.lastKept = item;
    worker.keptLength.store(givesUp ? 1 : length + 1, std::memory_order_relaxed);
    worker.keptCount.fetch_add(1, std::memory_order_relaxed);
    worker.kept.store(first, std::memory_order_seq_cst);
    return givesUp;
}

void Pool::pushAll(WorkItem* items) noexcept {
    if (items) pushInbox(items, reversed(items).first);
}

/// Lets others run what the worker kept; whether there was anything.
bool Pool::giveUpKept(Worker& worker) noexcept {
    auto* const item = worker.kept.exchange(nullptr, std::memory_order_acq_rel);
    pushAll(item);
    return item;
}

/// For a worker that finds nothing: what others keep for later, but for the one that they come to next.
void Pool::stealKept() noexcept {
    std::lock_guard const hold(lock_);
    for (auto* worker = workers_; worker; worker = worker->next)
        if (worker->kept.load(std::memory_order_relaxed) && worker->keptLength.load(std::memory_order_relaxed) > 1)
            giveUpKept(*worker);
}

// Whoever changes searching_ or mayWake_ looks at the inbox afterwards, and here the order is the other way round, so an item
// cannot fall between the two.
void Pool::wakeIfUseful() noexcept {
    if (searching_.load(std::memory_order_seq_cst) > 0) return;
    if (mayWake_.load(std::memory_order_seq_cst))
        wakeOne();
    else
        callMonitor();
}

void Pool::wakeOne() noexcept {
    std::unique_lock hold(lock_);
    if (searching_.load(std::memory_order_relaxed) > 0 || !mayWake_.load(std::memory_order_relaxed)) return;
    searching_.store(1, std::memory_order_seq_cst);
    if (call(Worker::Searcher, hold)) return;
    searching_.store(0, std::memory_order_seq_cst);
    bool const someoneComes = threads_ > 0;
    hold.unlock();
    if (!someoneComes) fatal("dispatch: no thread can be started");
    callMonitor(); // there may be one later
}

void Pool::callExtras(int count) noexcept {
    for (; count > 0; --count) {
        std::unique_lock hold(lock_);
        if (!call(Worker::Extra, hold)) return;
    }
}

/// Wakes a worker or starts one; called with the lock, which is given back when that went well.
bool Pool::call(Worker::Role role, std::unique_lock<Lock>& hold) noexcept {
    bool const isExtra = role == Worker::Extra;
    auto& count = isExtra ? extras_ : running_;
    ++count;
    auto* const sleeper = sleepers_;
    if (sleeper) {
        leaveSleepers(*sleeper);
        sleeper->isExtra = isExtra;
        sleeper->turnsSeen = turnsTaken_;
    } else {
        ++threads_;
    }
    updateCounts();
    hold.unlock();
    if (sleeper) {
        sleeper->called.store(role, std::memory_order_release);
        unpark(sleeper->called);
        return true;
    }
    auto* const worker = new Worker(*this, isExtra);
    if (startThread(name_, &Pool::threadMain, worker)) return true;
    delete worker;
    hold.lock();
    --count;
    --threads_;
    updateCounts();
    return false;
}

/// Puts what was submitted since the last time in line.
void Pool::sortInbox() noexcept {
    auto* item = reversed(inbox_.exchange(nullptr, std::memory_order_acq_rel)).first;
    while (item) {
        auto* const next = item->next();
        (item->isTurn() ? turns_ : backlog_).append(item);
        item = next;
    }
}

/// Where many turns block, those that follow are left to extra workers: a global queue must still find a thread.
bool Pool::mayTakeTurns() const noexcept { return threads_ - extras_ - sleeping_ <= processorCount() + mostBlockedByTurns; }

void Pool::updateCounts() noexcept {
    tooManyRun_.store(running_ > processorCount(), std::memory_order_relaxed);
    mayWake_.store(running_ < processorCount() && (sleepers_ || threads_ < mostThreads), std::memory_order_seq_cst);
}

void* Pool::threadMain(void* argument) {
    auto* const worker = static_cast<Worker*>(argument);
    auto& pool = worker->pool;
    worker->thread = static_cast<pid_t>(syscall(SYS_gettid));
    thisThread.worker = worker;
    if (pool.niceness_ > 0) setpriority(PRIO_PROCESS, static_cast<id_t>(worker->thread), pool.niceness_);
    {
        std::lock_guard const hold(pool.lock_);
        worker->turnsSeen = pool.turnsTaken_;
        worker->next = pool.workers_;
        pool.workers_ = worker;
    }
    pool.run(*worker);
    thisThread.worker = nullptr;
    delete worker;
    return nullptr;
}

namespace {
/// Runs an item, and what it stands for.
void runWhatever(WorkItem* item) noexcept {
    runAndRecycle(item);
    if (!thisThread.next.queue) return;
    DispatchQueue::follow(std::exchange(thisThread.next, {}));
    thisThread.chainPassedOn = false;
}
} // namespace

/// A worker comes as the one that searches, or as an extra, and leaves when it has slept for long.
void Pool::run(Worker& worker) noexcept {
    FrameScope const frame(queue_);
    bool searching = !worker.isExtra;
    for (;;) {
        if (wantsWorkersBack()) giveUpKept(worker);
        auto* item = takeKept(worker);
        if (!item) item = worker.isExtra ? takeTurn(worker) : searching ? search(worker) : take(worker);
        if (!item) {
            int nobody = 0;
            if (!searching && !worker.isExtra && searching_.compare_exchange_strong(nobody, 1, std::memory_order_seq_cst)) {
                searching = true;
                continue;
            }
            if (!sleep(worker, std::exchange(searching, true))) return;
            searching = worker.called.exchange(0, std::memory_order_acquire) == Worker::Searcher;
            continue;
        }
        if (std::exchange(searching, false)) stopSearching();
        runWhatever(item);
        if (worker.blocked.load(std::memory_order_relaxed)) workerResumes(worker);
        if (tooManyRun_.load(std::memory_order_relaxed) && !worker.isExtra) {
            if (giveUpKept(worker)) wakeIfUseful();
            if (!sleep(worker, false)) return;
            searching = worker.called.exchange(0, std::memory_order_acquire) == Worker::Searcher;
        }
    }
}

void Pool::runOn(WorkItem* item) noexcept {
    FrameScope const frame(queue_);
    runWhatever(item);
}

WorkItem* Pool::takeKept(Worker& worker) noexcept {
    if (!worker.kept.load(std::memory_order_relaxed)) return nullptr;
    auto* const item = worker.kept.exchange(nullptr, std::memory_order_acq_rel);
    if (!item) return nullptr; // the monitor was here
    if (auto* const rest = item->next()) {
        worker.keptCount.fetch_add(1, std::memory_order_relaxed);
        worker.keptLength.store(worker.keptLength.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
        worker.kept.store(rest, std::memory_order_release);
    }
    return item;
}

/// The oldest item. Behind a long backlog the worker takes a few more under the same lock, and keeps them.
WorkItem* Pool::take(Worker& worker) noexcept {
    constexpr std::size_t mostAtOnce = 8;
    constexpr std::size_t longBacklog = 16; // for each item that is taken
    std::unique_lock hold(lock_);
    if (backlog_.empty() && turns_.empty()) sortInbox();
    bool const hasTurn = !turns_.empty() && mayTakeTurns();
    if (backlog_.empty() && !hasTurn) {
        if (!turns_.empty()) callMonitor(); // which sends an extra worker
        return nullptr;
    }

    bool const takesTurn = hasTurn && (backlog_.empty() || turnIsNext_);
    turnIsNext_ = !takesTurn;
    auto& line = takesTurn ? turns_ : backlog_;
    auto const count = std::clamp<std::size_t>(line.count() / longBacklog, 1, mostAtOnce);
    auto* const item = line.take(count);
    ++taken_;
    turnsTaken_ += takesTurn;
    wantsWorkersBack_.store(false, std::memory_order_relaxed);
    hold.unlock();

    if (count > 1) {
        worker.keptCount.fetch_add(1, std::memory_order_relaxed);
        worker.keptLength.store(static_cast<std::uint32_t>(count - 1), std::memory_order_relaxed);
        worker.lastKept = item;
        while (auto* const next = worker.lastKept->next()) worker.lastKept = next;
        worker.kept.store(item->next(), std::memory_order_seq_cst);
        callMonitor();
    }
    return item;
}

/// The oldest turn of a serial queue, for an extra worker; none once others make headway.
WorkItem* Pool::takeTurn(Worker& worker) noexcept {
    std::lock_guard const hold(lock_);
    if (turns_.empty() || std::exchange(worker.turnsSeen, turnsTaken_) != turnsTaken_) return nullptr;
    ++taken_;
    return turns_.take();
}

/// Looks out for a moment before it gives up. A worker that has looked in vain several times hardly does so any more, until work
/// comes so soon after it went to sleep that looking would have paid (benchmark "timers": the work of a busy timer comes every
/// few dozen microseconds).
WorkItem* Pool::search(Worker& worker) noexcept {
    WorkItem* item = take(worker);
    if (item) return item;
    stealKept();
    bool const found = spin(worker.searchTime, [&] { return inbox_.load(std::memory_order_relaxed) && (item = take(worker)); });
    worker.searchTime = found ? Worker::longestSearch : worker.searchTime / 2;
    return item;
}

/// The searcher has found something: whatever else is queued needs another one.
void Pool::stopSearching() noexcept {
    searching_.store(0, std::memory_order_seq_cst);
    lock_.lock();
    bool const more = hasQueued();
    lock_.unlock();
    if (more) wakeIfUseful();
}

/// Sleeps until somebody calls the worker, unless it is needed at once; false when it is to end.
bool Pool::sleep(Worker& worker, bool searching) noexcept {
    {
        std::lock_guard const hold(lock_);
        // An extra is one of the others from here on, if they need it.
        if (std::exchange(worker.isExtra, false)) {
            --extras_;
            ++running_;
        }
        // The monitor may have taken it for blocked just now, and then it counts as running no more.
        if (worker.blocked.exchange(false, std::memory_order_relaxed)) ++running_;
        bool const needed = running_ <= processorCount();
        --running_;
        worker.sleeps = true;
        ++sleeping_;
        worker.nextSleeper = sleepers_;
        sleepers_ = &worker;
        if (searching) searching_.store(0, std::memory_order_seq_cst);
        updateCounts();
        if (needed && hasQueued()) {
            leaveSleepers(worker);
            ++running_;
            updateCounts();
            return true;
        }
    }
    auto const start = monotonicNow();
    bool hasTrimmed = false;
    while (worker.called.load(std::memory_order_acquire) == 0) {
        if (park(worker.called, 0, start + (hasTrimmed ? idleTime : quietTime))) continue;
        if (!std::exchange(hasTrimmed, true)) {
            itemDepot().trim();
            continue;
        }
        std::lock_guard const hold(lock_);
        if (!worker.sleeps) continue; // called at the last moment
        leaveSleepers(worker);
        forget(worker);
        return false;
    }
    if (monotonicNow() - start < 2 * Worker::longestSearch) worker.searchTime = Worker::longestSearch;
    return true;
}

void Pool::leaveSleepers(Worker& worker) noexcept {
    auto** link = &sleepers_;
    while (*link != &worker) link = &(*link)->nextSleeper;
    *link = worker.nextSleeper;
    worker.sleeps = false;
    --sleeping_;
}

void Pool::forget(Worker& worker) noexcept {
    auto** link = &workers_;
    while (*link != &worker) link = &(*link)->next;
    *link = worker.next;
    --threads_;
    updateCounts();
}

void Pool::workerBlocks(Worker& worker) noexcept {
    giveUpKept(worker);
    std::unique_lock hold(lock_);
    if (!worker.isExtra && !worker.blocked.exchange(true, std::memory_order_relaxed)) --running_;
    updateCounts();
    bool const queued = hasQueued();
    hold.unlock();
    if (queued) wakeIfUseful();
}

void Pool::workerResumes(Worker& worker) noexcept {
    std::lock_guard const hold(lock_);
    if (worker.blocked.exchange(false, std::memory_order_relaxed)) ++running_;
    updateCounts();
}

BlockingScope::BlockingScope() noexcept {
    if (auto* const worker = thisThread.worker) worker->pool.workerBlocks(*worker);
}

BlockingScope::~BlockingScope() {
    if (auto* const worker = thisThread.worker) worker->pool.workerResumes(*worker);
}

} // namespace Tessarin::engine
