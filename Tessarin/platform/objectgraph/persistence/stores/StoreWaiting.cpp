#include "Tessarin/platform/objectgraph/persistence/stores/StoreWaiting.h"

#include "Tessarin/platform/objectgraph/persistence/stores/StoreClockPrivate.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace Tessarin {

StoreClock& storeClock() {
    static StoreClock clock{
        [] { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); },
        [](double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }};
    return clock;
}

void StoreWaiting::init(Told told, std::optional<double> timeLimit) {
    NSObject::init();
    told_ = std::move(told);
    timeLimit_ = timeLimit;
}

bool StoreWaiting::pause(Ref<NSError> const& reason) {
    auto const& clock = storeClock();
    auto const now = clock.now();
    if (!began_) began_ = now;
    auto const waited = now - *began_;
    if (isCancelled() || (timeLimit_ && waited >= *timeLimit_)) {
        isOver_ = true;
        return false;
    }
    if (waited >= nextTold_) {
        while (nextTold_ <= waited) nextTold_ *= 2;
        if (told_) told_(reason, waited);
    }
    auto length = std::min(nextPause_, nextTold_ - waited);
    if (timeLimit_) length = std::min(length, *timeLimit_ - waited);
    sleep(std::max(length, 0.001));
    nextPause_ = std::min(nextPause_ * 2, longestPause);
    isOver_ = isCancelled();
    return !isOver_;
}

void StoreWaiting::sleep(double seconds) const {
    auto const& clock = storeClock();
    if (!opening_) return clock.sleep(seconds);
    for (auto const end = clock.now() + seconds; seconds > 0 && !isCancelled(); seconds = end - clock.now())
        clock.sleep(std::min(seconds, cancelledWithin));
}

void StoreWaiting::end() noexcept {
    began_.reset();
    nextPause_ = firstPause;
    nextTold_ = firstTold;
    isOver_ = false;
}

} // namespace Tessarin
