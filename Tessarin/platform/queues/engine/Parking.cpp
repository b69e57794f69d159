#include "Tessarin/platform/queues/engine/Parking.h"

#include "Tessarin/platform/queues/engine/Processors.h"
#include <bit>
#include <cerrno>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Tessarin::engine {
namespace {

constexpr Nanoseconds second = 1'000'000'000;

bool wait(void const* word, std::uint32_t expected, Nanoseconds deadline) noexcept {
    timespec until{};
    if (deadline != never) {
        auto const positive = deadline > 0 ? deadline : 0;
        until.tv_sec = positive / second;
        until.tv_nsec = positive % second;
    }
    auto const result = syscall(SYS_futex, word, FUTEX_WAIT_BITSET_PRIVATE, expected, deadline == never ? nullptr : &until,
                                nullptr, FUTEX_BITSET_MATCH_ANY);
    return result == 0 || errno != ETIMEDOUT;
}

int wake(void const* word, int count) noexcept {
    return static_cast<int>(syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0));
}

void const* lowerHalf(std::atomic<std::uint64_t> const& word) noexcept {
    auto const* const bytes = reinterpret_cast<char const*>(&word);
    return std::endian::native == std::endian::little ? bytes : bytes + 4;
}

} // namespace

bool const spinningHelps = allowedProcessors() > 1;

Nanoseconds monotonicNow() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * second + now.tv_nsec;
}

bool park(std::atomic<std::uint32_t> const& word, std::uint32_t expected, Nanoseconds deadline) noexcept {
    return wait(&word, expected, deadline);
}
int unpark(std::atomic<std::uint32_t> const& word, int count) noexcept { return wake(&word, count); }

bool park(std::atomic<std::uint64_t> const& word, std::uint64_t expected, Nanoseconds deadline) noexcept {
    return wait(lowerHalf(word), static_cast<std::uint32_t>(expected), deadline);
}
int unpark(std::atomic<std::uint64_t> const& word, int count) noexcept { return wake(lowerHalf(word), count); }

void Lock::lockSlow() noexcept {
    constexpr Nanoseconds patience = 2'000;
    if (spin(patience, [this] {
            std::uint32_t expected = 0;
            return word_.load(std::memory_order_relaxed) == 0 &&
                   word_.compare_exchange_weak(expected, 1, std::memory_order_acquire);
        }))
        return;
    while (word_.exchange(2, std::memory_order_acquire) != 0) park(word_, 2);
}

} // namespace Tessarin::engine
