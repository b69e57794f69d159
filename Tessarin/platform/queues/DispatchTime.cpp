#include "Tessarin/platform/queues/DispatchTime.h"

#include "Tessarin/platform/queues/engine/Parking.h"

namespace Tessarin {
namespace {

// Moments of the wall clock are stored negated, in the upper half of the range, as nanoseconds since 1970.
constexpr dispatch_time_t lastMonotonic = INT64_MAX;

std::int64_t wallNow() noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * static_cast<std::int64_t>(NSEC_PER_SEC) + now.tv_nsec;
}

/// What lies before the beginning is the beginning; what lies beyond the end is never.
dispatch_time_t moved(std::int64_t from, std::int64_t delta, bool isWall) noexcept {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(from, delta, &sum)) sum = delta < 0 ? 1 : INT64_MAX;
    if (sum < 1) sum = 1;
    if (sum == INT64_MAX) return DISPATCH_TIME_FOREVER;
    // Minus one would be DISPATCH_TIME_FOREVER; both are long past.
    return isWall ? static_cast<dispatch_time_t>(-(sum == 1 ? 2 : sum)) : static_cast<dispatch_time_t>(sum);
}

} // namespace

dispatch_time_t dispatch_time(dispatch_time_t when, std::int64_t delta) {
    if (when == DISPATCH_TIME_FOREVER) return when;
    if (when > lastMonotonic) return moved(-static_cast<std::int64_t>(when), delta, true);
    return moved(when == DISPATCH_TIME_NOW ? engine::monotonicNow() : static_cast<std::int64_t>(when), delta, false);
}

dispatch_time_t dispatch_walltime(timespec const* when, std::int64_t delta) {
    auto const from = when ? when->tv_sec * static_cast<std::int64_t>(NSEC_PER_SEC) + when->tv_nsec : wallNow();
    return moved(from, delta, true);
}

namespace engine {

Nanoseconds deadlineOf(std::uint64_t when) noexcept {
    if (when == DISPATCH_TIME_FOREVER) return never;
    if (when == DISPATCH_TIME_NOW) return 0;
    if (when <= lastMonotonic) return static_cast<Nanoseconds>(when);
    auto const ahead = -static_cast<std::int64_t>(when) - wallNow();
    Nanoseconds deadline = 0;
    if (__builtin_add_overflow(monotonicNow(), ahead, &deadline)) return ahead < 0 ? 0 : never;
    return deadline;
}

} // namespace engine
} // namespace Tessarin
