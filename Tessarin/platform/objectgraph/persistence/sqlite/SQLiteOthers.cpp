#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteOthersPrivate.h"

#include "Tessarin/platform/foundation/values/NSError.h"

#include <cstdio>
#include <system_error>

// The number that is known only grows. A save moves it on only where it is the one right before its own; a look that reads
// meanwhile leaves out what this store wrote, and so loses nothing by beginning at an older number. `isScheduled_` is taken back
// before a look reads: what is committed later comes with a notice of its own.
namespace Tessarin {

void SQLiteOthers::begin(bool mayMake, Look look) {
    mayMake_ = mayMake;
    look_ = std::move(look);
    watch();
    schedule(); // somebody may have saved since the file was opened
}

Ref<FileWatch> SQLiteOthers::watched(bool mayMake, int& problem) {
    return notice_.watch(
        mayMake,
        [weak = weak_from_this()](FileWatch::Event event) {
            auto const others = weak.lock();
            if (!others) return;
            // It is not made anew here: perhaps somebody is just removing the whole folder.
            if (event == FileWatch::Event::Gone) others->isBlind_ = others->isLost_ = true;
            others->schedule();
        },
        problem);
}

void SQLiteOthers::watch() {
    int problem = 0;
    auto watch = watched(mayMake_, problem);
    isBlind_ = !watch;
    Ref<FileWatch> former; // goes without the lock
    std::lock_guard const hold(mutex_);
    former = std::exchange(watch_, isOver_ ? nullptr : std::move(watch));
    if (problem == 0 || std::exchange(hasTold_, true)) return;
    std::fprintf(stderr, "Tessarin: what other processes save to %s is noticed only when this one saves or fetches: %s\n",
                 path_.c_str(), std::generic_category().message(problem).c_str());
}

/// Who only reads makes no notice, and is told when somebody else has.
void SQLiteOthers::watchAgain() {
    if (!isLost_.exchange(false)) return;
    isBlind_ = false; // before the watch, which may find it gone again
    bool isExpected = false;
    {
        std::lock_guard const hold(mutex_);
        isExpected = making_ != nullptr;
    }
    auto making = isExpected ? nullptr : notice_.watchForMaking([weak = weak_from_this()](FileWatch::Event) {
        if (auto const others = weak.lock()) others->schedule();
    });
    int problem = 0;
    auto watch = watched(false, problem); // after that: it may be there already
    if (!watch) isBlind_ = isLost_ = true;
    std::lock_guard const hold(mutex_); // what was there goes without it
    if (isOver_) return;
    if (watch)
        watch_.swap(watch), making_.swap(making), making_ = nullptr;
    else if (!isExpected)
        making_.swap(making);
}

void SQLiteOthers::noteSaved(SQLiteHistoryWriter::Written written, bool isAlone) {
    if (isLost_.exchange(false)) {
        watch();
        schedule(); // somebody may have made and touched another one meanwhile
    }
    if (written.last < written.first) return noteUsed();
    auto before = written.first - 1;
    if (!isAlone || !seen_.compare_exchange_strong(before, written.last)) schedule();
}

void SQLiteOthers::schedule() {
    if (isOver_ || isScheduled_.exchange(true)) return;
    dispatch_async(queue_, [weak = weak_from_this()] {
        auto const living = weak.lock();
        if (!living) return;
        living->isScheduled_ = false;
        if (!living->isOver_) living->look();
    });
}

void SQLiteOthers::look() {
    watchAgain();
    auto seen = seen_.load();
    auto const upTo = look_(seen);
    while (seen < upTo && !seen_.compare_exchange_weak(seen, upTo)) {}
}

void SQLiteOthers::end() {
    isOver_ = true;
    Ref<FileWatch> former, making; // go without the lock
    std::lock_guard const hold(mutex_);
    former = std::exchange(watch_, nullptr);
    making = std::exchange(making_, nullptr);
}

} // namespace Tessarin
