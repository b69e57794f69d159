// What a change has done a moment later: writing, reading, telling.
#include "Tessarin/platform/foundation/preferences/DefaultsSuitePrivate.h"

#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/queues/Dispatch.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace Tessarin::defaults {
namespace {

constexpr double quietSeconds = 1;  // without a change, before changes are written
constexpr int mostRounds = 10;      // of such seconds, before they are written all the same
constexpr double longestPause = 64; // seconds between two tries to write

dispatch_queue_t const& background() {
    static auto const& queue = *new dispatch_queue_t(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0));
    return queue;
}

void after(double seconds, Closure<void()> work) {
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, static_cast<std::int64_t>(seconds * 1e9)), background(), std::move(work));
}

} // namespace

void DefaultsSuite::writeSoon(std::uint64_t number) {
    after(quietSeconds, [self = shared_from_this(), number] { self->writeWhenQuiet(number, 1); });
}

void DefaultsSuite::writeWhenQuiet(std::uint64_t seen, int rounds) {
    {
        std::lock_guard const hold(lock_);
        bool const isQuiet = changes_ == seen || rounds >= mostRounds;
        seen = changes_;
        rounds = isQuiet ? 0 : rounds + 1;
        if (isQuiet) writeIsDue_ = false; // from now on a change asks for the next time
    }
    if (rounds == 0) return writeOrRetry(quietSeconds);
    after(quietSeconds, [self = shared_from_this(), seen, rounds] { self->writeWhenQuiet(seen, rounds); });
}

void DefaultsSuite::writeOrRetry(double pause) {
    if (!hasUnwritten()) return;
    auto const problem = synchronize();
    auto const words = problem ? problem->localizedDescription() + "; the settings are kept in memory" : std::string{};
    {
        std::lock_guard const hold(lock_);
        bool const isKnown = std::exchange(lastProblem_, words) == words;
        if (!problem) return;
        if (!isKnown) warn(words);
        if (std::exchange(writeIsDue_, true)) return; // a later change asked already
    }
    after(pause, [self = shared_from_this(), pause] {
        {
            std::lock_guard const hold(self->lock_);
            self->writeIsDue_ = false;
        }
        self->writeOrRetry(std::min(pause * 2, longestPause));
    });
}

void DefaultsSuite::fileMayHaveChanged() {
    {
        std::lock_guard const hold(lock_);
        if (std::exchange(readIsDue_, true)) return;
    }
    after(settleSeconds, [weak = weak_from_this()] {
        auto const self = weak.lock();
        if (!self) return;
        {
            std::lock_guard const hold(self->lock_);
            self->readIsDue_ = false;
        }
        self->readOrWarn();
    });
}

void DefaultsSuite::tellSoon() {
    dispatch_async(dispatch_get_main_queue(), [weak = weak_from_this()] {
        if (auto const self = weak.lock()) self->tell();
    });
}

void DefaultsSuite::tell() {
    decltype(othersKeys_) keys;
    {
        std::lock_guard const hold(lock_);
        noticeIsDue_ = false;
        keys.swap(othersKeys_);
    }
    auto const sender = home.lock();
    if (!sender) return;
    List changed(keys.begin(), keys.end());
    NSNotificationCenter::defaultCenter()->postNotificationName(
        NSUserDefaultsDidChangeNotification, sender, Dictionary{{NSUserDefaultsChangedKeys, Value(std::move(changed))}});
}

} // namespace Tessarin::defaults
