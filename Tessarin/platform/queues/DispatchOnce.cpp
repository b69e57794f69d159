#include "Tessarin/platform/queues/DispatchOnce.h"

#include "Tessarin/platform/queues/engine/Parking.h"
#include "Tessarin/platform/queues/engine/Thread.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include <climits>
#include <sys/syscall.h>
#include <unistd.h>

namespace Tessarin {

using namespace engine;

// The token is 0, then twice the number of the thread that runs the work, plus one when others wait, then -1.
void dispatch_once_slow(dispatch_once_t* token, FunctionRef<void()> work) {
    static_assert(sizeof(dispatch_once_t) == sizeof(std::atomic<std::uint64_t>));
    auto& word = *reinterpret_cast<std::atomic<std::uint64_t>*>(token);
    constexpr auto done = ~std::uint64_t{0};
    auto const mine = static_cast<std::uint64_t>(syscall(SYS_gettid)) << 1;

    std::uint64_t seen = 0;
    if (word.compare_exchange_strong(seen, mine, std::memory_order_acq_rel, std::memory_order_acquire)) {
        [&]() noexcept { work(); }();
        if (word.exchange(done, std::memory_order_acq_rel) & 1) unpark(word, INT_MAX);
        return;
    }
    if (seen == done) return;
    if ((seen | 1) == (mine | 1)) fatal("dispatch_once: called inside its own work");
    BlockingScope const blocking;
    while (seen != done) {
        if (!(seen & 1) && !word.compare_exchange_weak(seen, seen | 1, std::memory_order_acq_rel, std::memory_order_acquire))
            continue;
        park(word, seen | 1, never);
        seen = word.load(std::memory_order_acquire);
    }
}

} // namespace Tessarin
