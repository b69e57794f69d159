#pragma once
#include "Tessarin/platform/queues/Retained.h"
#include "Tessarin/platform/queues/engine/Parking.h"
#include "Tessarin/platform/queues/engine/Thread.h"
#include "Tessarin/platform/queues/engine/WorkItem.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <atomic>
#include <cstdint>

namespace Tessarin {

namespace engine {
struct SpecificTable;
extern constinit SpecificTable noSpecifics;
struct Waiter;
enum class Access : std::uint8_t { Exclusive, Shared };
/// How long syncs hold a queue, beside what it takes to put a thread to sleep and wake it: less, several times that, perhaps or
/// for certain much more (a single one may have been interrupted).
enum class SyncTurns : std::uint8_t { Short, Middling, PerhapsLong, Long };

/// The bits around the list of newly submitted items, which sits in the middle of a queue's one state word.
///
///   Owned      somebody has the queue for itself: a sync, or (with Token) a thread that drains it
///   Token      the queue is on its way to be drained, or being drained, or parked; the token holds a reference
///   Parked     with Token: what is left waits for a resume, or for the last reader in front of a barrier
///   Suspended  no item may start
///   Sleepers   syncs sleep beside a queue that another sync owns (serial queues)
///   Ended      the last reference went while a sync had the queue or waited for it: who leaves last ends it
///   Readers    how many run side by side (concurrent queues)
namespace state {
inline constexpr std::uint64_t Owned = 1;
inline constexpr std::uint64_t Token = 2;
inline constexpr std::uint64_t Parked = 4;
inline constexpr std::uint64_t Suspended = 8;
inline constexpr std::uint64_t Sleepers = 16;
inline constexpr std::uint64_t Ended = 32;
inline constexpr std::uint64_t Items = 0x0000'ffff'ffff'ffc0;
inline constexpr std::uint64_t Reader = std::uint64_t{1} << 48;
inline constexpr std::uint64_t Readers = std::uint64_t{0xffff} << 48;
inline constexpr std::uint64_t MostReaders = 4096 * Reader;
} // namespace state
} // namespace engine

/// The queue behind every `dispatch_queue_t`.
///
/// Submitters push at the front of the list in the state word; whoever owns the queue detaches the whole list at once, turns it
/// round and keeps it in `fifo_`, which only the owner touches. A sync that finds the word zero claims the queue with one
/// compare-and-swap and gives it back with another. A sync that has to wait becomes an item itself, and is handed the queue (and
/// every queue above it, up to the pool) by the thread that comes upon it. The main thread never hands over: it runs the work.
class DispatchQueue {
public:
    enum class Kind : std::uint8_t { Serial, Concurrent, Global, Main };

    constexpr DispatchQueue(Kind kind, char const* label, DispatchQueue* target) noexcept
        : kind_(kind), target_(target), label_(label) {}
    DispatchQueue(DispatchQueue const&) = delete;
    DispatchQueue& operator=(DispatchQueue const&) = delete;
    ~DispatchQueue() = default;

    void retain() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept {
        if (dropReference()) end();
    }

    bool isGlobal() const noexcept { return kind_ == Kind::Global; }
    bool isMain() const noexcept { return kind_ == Kind::Main; }
    bool isConcurrent() const noexcept { return kind_ == Kind::Concurrent; }
    bool isRoot() const noexcept { return isGlobal() || isMain(); }
    /// Null for roots. Changes only while somebody owns the queue, so whoever holds it may follow it.
    DispatchQueue* target() const noexcept { return target_.load(std::memory_order_relaxed); }
    char const* label() const noexcept { return label_ ? label_ : ""; }

    /// Queues the item behind all others, and sees to it that somebody comes to drain.
    void submit(engine::WorkItem* item) noexcept;
    /// Goes on where an item that stands for a queue leads, until the queue is left. Called with the queue's token, or for an
    /// item of a concurrent queue as one of its readers.
    static void follow(engine::Step step) noexcept;
    /// Whether what runs on it now has nothing beside it.
    bool runsAlone() const noexcept {
        return !isGlobal() && !(state_.load(std::memory_order_acquire) & engine::state::Readers);
    }
    bool isIdle() const noexcept { return state_.load(std::memory_order_acquire) == 0; }
    bool hasToken() const noexcept { return state_.load(std::memory_order_acquire) & engine::state::Token; }

    /// Takes the queue if that needs no waiting.
    bool tryClaim(engine::Access access) noexcept;
    /// Takes the queue, waiting for another sync at most about a millisecond; false: wait in line.
    bool claim(engine::Access access) noexcept;
    /// What a sync found that others waited for: how those who come next shall wait.
    void noteTurn(engine::Nanoseconds length) noexcept;
    engine::SyncTurns turns() const noexcept { return turns_.load(std::memory_order_relaxed); }
    void leave(engine::Access access) noexcept { access == engine::Access::Shared ? leaveShared() : leaveExclusive(); }

    void suspend();
    void resume();
    void setTarget(DispatchQueue& target);

    void setSpecific(void const* key, void* value, dispatch_function_t destructor);
    void* specific(void const* key) const noexcept;

    void setContext(void* context) noexcept { context_.store(context, std::memory_order_release); }
    void* context() const noexcept { return context_.load(std::memory_order_acquire); }
    void setFinalizer(dispatch_function_t finalizer) noexcept { finalizer_.store(finalizer, std::memory_order_release); }

private:
    void push(engine::WorkItem* item) noexcept;
    bool enqueue(engine::WorkItem* item) noexcept;
    DispatchQueue* lineUp(engine::WorkItem*& turn) noexcept;
    void submitToTarget() noexcept;
    bool begin(engine::Step step) noexcept;
    bool goOn() noexcept { return isConcurrent() ? goOnReading() : goOnDraining(true); }
    bool goOnReading() noexcept;
    bool goOnDraining(bool isUnderWay) noexcept;
    bool beginDrain() noexcept;
    bool detach() noexcept;
    bool finish() noexcept;
    void requeue() noexcept;
    bool parkSuspended() noexcept;
    bool parkBehindReaders() noexcept;
    bool runNext() noexcept;
    bool runNextConcurrent(bool isFirst) noexcept;
    void giveTo(engine::Waiter& waiter) noexcept;
    void passOn(engine::Waiter& waiter) noexcept;

    void leaveExclusive() noexcept {
        auto expected = engine::state::Owned;
        if (fifo_ || !state_.compare_exchange_strong(expected, 0, std::memory_order_release, std::memory_order_relaxed))
            leaveExclusiveSlowly();
    }
    void leaveExclusiveSlowly() noexcept;
    void leaveShared() noexcept;
    static bool leadsTo(DispatchQueue& start, DispatchQueue const& wanted);
    void takeComingTarget() noexcept;
    bool dropReference() noexcept {
        using namespace engine::state;
        // What is queued holds a reference, too: when that is the last one, nobody can resume the queue any more.
        bool const isHeldUp = (state_.load(std::memory_order_relaxed) & (Suspended | Parked)) == (Suspended | Parked);
        auto const before = references_.fetch_sub(1, std::memory_order_acq_rel);
        if (before == 2 && isHeldUp) endedWhileSuspended();
        return before == 1 && isToEnd();
    }
    bool isToEnd() noexcept;
    void end() noexcept;
    [[noreturn]] static void endedWhileSuspended() noexcept;

    // Submitters write the first words all the time; what the draining thread uses lies at least a cache line further on.
    std::atomic<std::uint64_t> state_ = 0;
    std::atomic<std::uint32_t> references_ = 1;
    Kind const kind_;
    bool isTargeted_ = false; // by any queue so far; guarded by rareLock
    bool turnUsed_ = false;   // the owner's, while it drains
    std::atomic<engine::SyncTurns> turns_ = engine::SyncTurns::Short;
    std::atomic<DispatchQueue*> target_;
    DispatchQueue* comingTarget_ = nullptr; // while its owner has not come to it; guarded by rareLock
    char const* label_; // owned, null when empty; static for roots
    std::atomic<void*> context_ = nullptr;
    std::atomic<dispatch_function_t> finalizer_ = nullptr;
    std::atomic<engine::SpecificTable*> specifics_ = &engine::noSpecifics;
    std::uint32_t suspensions_ = 0; // guarded by rareLock
    std::atomic<bool> halted_ = false; // state Suspended, where the draining thread can look at no cost
    engine::WorkItem* fifo_ = nullptr; // the owner's
};

namespace engine {

/// Guards what hardly ever happens: suspension counts, changes of targets and of specifics.
extern constinit Lock rareLock;

/// Runs the work as `dispatch_sync` or `dispatch_barrier_sync` does.
void syncOn(DispatchQueue& queue, Access access, FunctionRef<void()> work) noexcept;
/// Shared only where it means something: a plain access to a concurrent queue.
inline Access plainAccess(DispatchQueue const& queue) noexcept {
    return queue.isConcurrent() ? Access::Shared : Access::Exclusive;
}

DispatchQueue& mainQueue() noexcept;
DispatchQueue& defaultGlobalQueue() noexcept;
/// The queue whose item this thread runs; null on a plain thread.
DispatchQueue* currentQueue() noexcept;
/// Whether `runMainLoop` is to return.
bool mainLoopShallStop() noexcept;
void signalMainThread() noexcept;

} // namespace engine
} // namespace Tessarin
