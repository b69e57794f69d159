#include "Tessarin/platform/queues/engine/Pool.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>

// The monitor's part of a pool: it comes while something is queued, and sees what nobody announces.
namespace Tessarin::engine {
namespace {

constexpr Nanoseconds stallTime = 5'000'000;

// Turns of serial queues that stand still: first whoever drains a long queue of short items is asked to put it back in line, and
// only when that does not help are there items that compute.
constexpr Nanoseconds turnPatience = 150'000;
constexpr Nanoseconds extraPatience = 500'000;
constexpr int mostExtras = 448;

/// Whether the kernel has the thread asleep; a thread that merely waits for a processor is not.
bool isAsleep(pid_t thread) noexcept {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/task/%d/stat", static_cast<int>(thread));
    int const file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    char text[128];
    auto const length = read(file, text, sizeof text - 1);
    close(file);
    if (length <= 0) return false;
    text[length] = 0;
    char const* const name = std::strrchr(text, ')'); // "1234 (name) S …"
    return name && (name[2] == 'S' || name[2] == 'D');
}

} // namespace

Pool::Visit Pool::inspect(Nanoseconds now) noexcept {
    std::unique_lock hold(lock_);
    bool const keeps = collectKept();
    sortInbox();
    auto const extras = extrasWanted(now);
    bool const stand = !turns_.empty();
    bool const isFull = extras_ == mostExtras;
    bool const queued = hasQueued();
    if (!queued || std::exchange(takenSeen_, taken_) != taken_ || stalledSince_ == 0) {
        stalledSince_ = queued ? now : 0;
    } else if (now - stalledSince_ >= stallTime) {
        wantsWorkersBack_.store(true, std::memory_order_relaxed);
        if (findBlocked()) stalledSince_ = now;
    }
    hold.unlock();
    if (queued) wakeIfUseful();
    callExtras(extras);
    if (stand && !isFull) return Visit::Soon;
    return stand || queued || keeps ? Visit::Later : Visit::NotNeeded;
}

/// Looks whether turns stand still, and for how long; how many extra workers that calls for.
int Pool::extrasWanted(Nanoseconds now) noexcept {
    bool const moves = std::exchange(turnsTakenSeen_, turnsTaken_) != turnsTaken_;
    if (turns_.empty() || moves || turnsStandSince_ == 0) {
        turnsStandSince_ = turns_.empty() ? 0 : now;
        nextExtras_ = 1;
        return 0;
    }
    auto const waited = now - turnsStandSince_;
    if (waited >= turnPatience) wantsWorkersBack_.store(true, std::memory_order_relaxed);
    bool const othersCome = mayWake_.load(std::memory_order_relaxed) && mayTakeTurns();
    if (waited < extraPatience || othersCome) return 0;
    turnsStandSince_ = now;
    auto const count = std::min({nextExtras_, static_cast<int>(turns_.count()), mostExtras - extras_});
    nextExtras_ = std::min(2 * nextExtras_, mostExtras);
    return count;
}

/// Takes what has been kept since the last visit without being run; whether anything is kept.
bool Pool::collectKept() noexcept {
    bool any = false;
    for (auto* worker = workers_; worker; worker = worker->next) {
        auto const count = worker->keptCount.load(std::memory_order_relaxed);
        if (!worker->kept.load(std::memory_order_relaxed)) continue;
        any = true;
        if (worker->keptCountSeen == count) giveUpKept(*worker);
        worker->keptCountSeen = count;
    }
    return any;
}

bool Pool::findBlocked() noexcept {
    bool found = false;
    for (auto* worker = workers_; worker; worker = worker->next) {
        if (worker->sleeps || worker->isExtra || worker->blocked.load(std::memory_order_relaxed) || !isAsleep(worker->thread))
            continue;
        worker->blocked.store(true, std::memory_order_relaxed);
        --running_;
        found = true;
    }
    if (found) updateCounts();
    return found;
}

} // namespace Tessarin::engine
