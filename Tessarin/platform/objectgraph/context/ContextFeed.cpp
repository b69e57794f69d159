#include "Tessarin/platform/objectgraph/context/ContextFeedPrivate.h"

#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include "Tessarin/platform/queues/Dispatch.h"

#include <algorithm>

namespace Tessarin {

void ContextFeed::add(Ref<ContextFollower> const& follower) {
    std::erase_if(followers_, [](auto const& each) { return each.expired(); });
    followers_.push_back(follower);
    mustWake_.store(true, std::memory_order_relaxed);
}

void ContextFeed::note(ContextState& context, NSManagedObject const& object) {
    if (!isFollowed()) return;
    if (turn_.records.empty() || turn_.records.back().key != object.recordKey())
        turn_.records.push_back({&object.entity(), object.recordKey()});
    isTouched(context);
}

void ContextFeed::note(ContextState& context, Ref<ChangeSet const> const& set, bool isCorrection) {
    if (!isFollowed() || set->empty()) return;
    turn_.sets.push_back({set, isCorrection});
    isTouched(context);
}

void ContextFeed::noteNewKey(ContextState& context, NSManagedObject const& object, RecordKey now) {
    if (!isFollowed()) return;
    turn_.newKeys.push_back({&object.entity(), object.recordKey(), now});
    noteNewKeys(context);
}

void ContextFeed::noteNewKeys(ContextState& context) {
    if (!isFollowed()) return;
    turn_.hasNewKeys = true;
    isTouched(context);
}

void ContextFeed::noteEverything(ContextState& context) {
    if (!isFollowed()) return;
    turn_.isEverything = true;
    isTouched(context);
}

void ContextFeed::awaitEnd(ContextState& context) {
    if (!isFollowed()) return;
    turn_.isAwaited = true;
    isTouched(context);
}

void ContextFeed::tell(ContextState& context) {
    if (isTelling_ || turn_.empty()) return;
    struct Telling {
        explicit Telling(bool& flag) : isTelling(flag) { isTelling = true; }
        ~Telling() { isTelling = false; }
        bool& isTelling;
    };
    {
        Telling const telling(isTelling_);
        auto const turn = std::exchange(turn_, {});
        for (auto const& each : std::vector(followers_)) // who is told may begin to follow
            if (auto const follower = each.lock()) follower->follow(turn);
    }
    if (std::erase_if(followers_, [](auto const& each) { return each.expired(); }) != 0 && followers_.empty()) {
        mustWake_.store(false, std::memory_order_relaxed);
        turn_ = {};
    }
    if (!turn_.empty()) isTouched(context); // by whoever was told
}

void ContextFeed::wake(NSManagedObjectContext& context) {
    if (mustWake_.load(std::memory_order_relaxed)) schedule(context);
}

/// A block that is open ends with telling; what happens outside any is told soon.
void ContextFeed::isTouched(ContextState& context) {
    if (context.news.openBlocks != 0 || isTelling_) return;
    if (auto const living = context.link->context()) schedule(*living);
}

void ContextFeed::schedule(NSManagedObjectContext& context) {
    if (isScheduled_.exchange(true, std::memory_order_acq_rel)) return;
    dispatch_async(context.queue(), [weak = WeakRef<NSManagedObjectContext>(context.self<NSManagedObjectContext>())] {
        auto const living = weak.lock();
        if (!living) return;
        GraphAccess::state(*living).feed.isScheduled_.store(false, std::memory_order_release);
        living->processPendingChanges();
    });
}

} // namespace Tessarin
