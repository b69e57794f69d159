#include "Tessarin/platform/queues/DispatchMain.h"

#include "Tessarin/platform/queues/engine/DispatchQueue.h"
#include "Tessarin/platform/queues/engine/Thread.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Tessarin {

using namespace engine;

namespace {

constinit DispatchQueue theMainQueue{DispatchQueue::Kind::Main, "main", nullptr};

union NeverDestroyed {
    constexpr NeverDestroyed() : queue(dispatch_queue_t::adopt(&theMainQueue)) {}
    ~NeverDestroyed() {}
    dispatch_queue_t queue;
};
constinit NeverDestroyed mainQueueReference;

enum Signal : std::uint32_t { Quiet, Signalled, Asleep };
constinit std::atomic<std::uint32_t> signal = Quiet; // Signalled until the drain that answers; Asleep in `runMainLoop` only
constinit std::atomic<int> descriptor = -1;
constinit std::atomic<bool> stopRequested = false;
// The main thread's:
constinit bool loopRuns = false;
constinit bool isDraining = false;
constinit bool wasClearedInside = false; // the descriptor, by a loop inside an item

// After work the loop looks out for more for a moment: a thread that syncs to main in a row, or answers its items with others,
// waits a tenth of the time. Nobody answers a timer, and dense ones would cost half as much again (benchmark "system").
constexpr Nanoseconds afterglow = 10'000;
bool isSignalled() noexcept { return signal.load(std::memory_order_acquire) == Signalled; }

void requireMainThread(char const* operation) {
    if (!isMainThread()) fatal(std::string{operation} + ": not on the main thread");
}

void writeDescriptor(int file) noexcept {
    std::uint64_t const one = 1;
    static_cast<void>(!write(file, &one, sizeof one));
}

void clearDescriptor() noexcept {
    std::uint64_t count = 0;
    if (int const file = descriptor.load(std::memory_order_seq_cst); file >= 0)
        static_cast<void>(!read(file, &count, sizeof count));
}

void drainOnce() {
    signal.store(Quiet, std::memory_order_seq_cst);
    clearDescriptor();
    isDraining = true;
    if (theMainQueue.hasToken()) DispatchQueue::follow({&theMainQueue, nullptr});
    isDraining = false;
    if (std::exchange(wasClearedInside, false) && isSignalled()) writeDescriptor(mainQueueDescriptor());
}

void sleepUntilSignalled() noexcept {
    std::uint32_t expected = Quiet;
    signal.compare_exchange_strong(expected, Asleep, std::memory_order_seq_cst);
    while (!isSignalled()) park(signal, Asleep);
}

} // namespace

namespace engine {

constinit thread_local ThreadContext thisThread [[gnu::tls_model("initial-exec")]];

bool askWhetherMainThread() noexcept {
    bool const isMain = syscall(SYS_gettid) == getpid();
    thisThread.role = isMain ? ThreadContext::Role::Main : ThreadContext::Role::Other;
    return isMain;
}

DispatchQueue& mainQueue() noexcept { return theMainQueue; }
bool mainLoopShallStop() noexcept { return loopRuns && stopRequested.load(std::memory_order_relaxed); }

void signalMainThread() noexcept {
    auto const before = signal.exchange(Signalled, std::memory_order_seq_cst);
    if (before == Signalled) return;
    if (before == Asleep) unpark(signal);
    if (int const file = descriptor.load(std::memory_order_seq_cst); file >= 0) writeDescriptor(file);
}

} // namespace engine

dispatch_queue_t const& dispatch_get_main_queue() { return mainQueueReference.queue; }

void runMainLoop() {
    requireMainThread("runMainLoop");
    if (thisThread.frames) fatal("runMainLoop: inside a work item");
    loopRuns = true;
    bool hasJustRun = false;
    while (!stopRequested.exchange(false)) {
        if (isSignalled()) {
            drainOnce();
            hasJustRun = true;
        } else if (!std::exchange(hasJustRun, false) || std::exchange(thisThread.hasServedTimer, false) ||
                   !spin(afterglow, isSignalled)) {
            sleepUntilSignalled();
        }
    }
    loopRuns = false;
}

void stopMainLoop() {
    stopRequested.store(true);
    signalMainThread();
}

int mainQueueDescriptor() {
    if (int const file = descriptor.load(std::memory_order_acquire); file >= 0) return file;
    int const made = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (made < 0) fatal("mainQueueDescriptor: no descriptor can be made");
    int expected = -1;
    if (!descriptor.compare_exchange_strong(expected, made, std::memory_order_seq_cst)) {
        close(made);
        return expected;
    }
    if (signal.load(std::memory_order_seq_cst) == Signalled) writeDescriptor(made);
    return made;
}

void drainMainQueue() {
    requireMainThread("drainMainQueue");
    if (!thisThread.frames) return drainOnce();
    // A loop inside an item would find the descriptor readable again and again; it is set anew when the item has ended.
    if (!isDraining) return; // inside a sync to another queue nobody would set it
    clearDescriptor();
    wasClearedInside = true;
}

} // namespace Tessarin
