#pragma once
#include <atomic>
#include <cstdint>

/// How threads of the engine wait: a bounded spin, then a futex.
namespace Tessarin::engine {

/// Nanoseconds on the monotonic clock; a deadline of `never` has no limit.
using Nanoseconds = std::int64_t;
inline constexpr Nanoseconds never = INT64_MAX;
Nanoseconds monotonicNow() noexcept;
/// A `dispatch_time_t` on the monotonic clock.
Nanoseconds deadlineOf(std::uint64_t when) noexcept;

/// Sleeps while `word` is `expected`, until woken or `deadline`; may return early without a reason. False at the deadline.
bool park(std::atomic<std::uint32_t> const& word, std::uint32_t expected, Nanoseconds deadline = never) noexcept;
/// Wakes up to `count` sleepers; how many it were. The word may be gone already: at worst somebody else wakes without a reason.
int unpark(std::atomic<std::uint32_t> const& word, int count = 1) noexcept;

/// The same on the lower half of a word of 64 bits.
bool park(std::atomic<std::uint64_t> const& word, std::uint64_t expected, Nanoseconds deadline) noexcept;
int unpark(std::atomic<std::uint64_t> const& word, int count) noexcept;

inline void pauseProcessor() noexcept {
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

/// Spinning helps only where another processor can make the progress.
extern bool const spinningHelps;

/// Asks `done` again and again for about `duration`; true as soon as it says so.
template <class Done> bool spin(Nanoseconds duration, Done&& done) noexcept {
    if (done()) return true;
    if (!spinningHelps) return false;
    auto const end = monotonicNow() + duration;
    do {
        for (int round = 0; round < 16; ++round) {
            pauseProcessor();
            if (done()) return true;
        }
    } while (monotonicNow() < end);
    return false;
}

/// A small lock for the engine's rare or short sections; constant-initialised and never destroyed.
class Lock {
public:
    void lock() noexcept {
        std::uint32_t expected = 0;
        if (!word_.compare_exchange_strong(expected, 1, std::memory_order_acquire)) lockSlow();
    }
    void unlock() noexcept {
        if (word_.exchange(0, std::memory_order_release) == 2) unpark(word_);
    }

private:
    void lockSlow() noexcept;
    std::atomic<std::uint32_t> word_ = 0; // 0 free, 1 held, 2 held and perhaps waited for
};

} // namespace Tessarin::engine
