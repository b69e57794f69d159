#include "Tessarin/platform/foundation/time/UserEnvironmentPrivate.h"

#include "Tessarin/platform/foundation/time/NSCalendar.h"
#include "Tessarin/platform/foundation/time/SystemTimeZonePrivate.h"
#include "Tessarin/platform/foundation/time/UserLanguagePrivate.h"

#include <ctime>
#include <mutex>
#include <unordered_map>
#include <fmt/format.h>

namespace Tessarin {
namespace {

constexpr std::int64_t patience = 1'000'000'000; // nanoseconds from one look to the next

std::atomic<UserEnvironment const*> known;
std::atomic<std::int64_t> nextLook; // on the coarse clock

/// The clock that costs no more than reading memory; a tick's precision is plenty here.
std::int64_t coarseTime() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec * 1'000'000'000 + now.tv_nsec;
}

struct Looking {
    std::mutex mutex;
    Ref<NSTimeZone> zone; // set by code; this and the next are guarded by the mutex
    std::unordered_map<std::string, std::unique_ptr<UserEnvironment const>> met;
};
Looking& looking() {
    static auto& shared = *new Looking;
    return shared;
}

std::unique_ptr<UserEnvironment const> makeEnvironment(Ref<NSTimeZone> const& wished, std::uint64_t generation) {
    auto made = std::make_unique<UserEnvironment>();
    made->generation = generation;
    made->zone = wished ? wished : systemTimeZone();
    made->locale = userLocale();
    made->calendar = NSCalendar::calendarWithIdentifier(calendarOfLocale(made->locale), made->zone);
    if (!made->calendar) made->calendar = NSCalendar::calendarWithIdentifier("gregorian", made->zone);
    made->languages = userLanguages();
    return made;
}

UserEnvironment const& look() {
    auto& [mutex, zone, met] = looking();
    std::lock_guard const hold(mutex);
    auto const key = fmt::format("{} {} {}", zone ? fmt::format("{}", fmt::ptr(zone.get())) : systemTimeZoneKey(), localeWishes(),
                                 languageWishes());
    auto& environment = met[key];
    if (!environment) environment = makeEnvironment(zone, met.size());
    known.store(environment.get(), std::memory_order_release);
    nextLook.store(coarseTime() + patience, std::memory_order_release); // last: who sees it also sees what was found
    return *environment;
}

} // namespace

UserEnvironment const& UserEnvironment::current() {
    auto const until = nextLook.load(std::memory_order_acquire); // first
    if (coarseTime() < until) [[likely]]
        return *known.load(std::memory_order_acquire);
    return look();
}

/// Under the mutex, so that a look that is under way and may have missed a change does not have the last word.
void UserEnvironment::lookAgain() {
    std::lock_guard const hold(looking().mutex);
    nextLook.store(0, std::memory_order_relaxed);
}

void UserEnvironment::setZone(Ref<NSTimeZone> zone) {
    std::lock_guard const hold(looking().mutex);
    looking().zone = std::move(zone);
    nextLook.store(0, std::memory_order_relaxed);
}

} // namespace Tessarin
