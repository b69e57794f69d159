#include "Tessarin/platform/objectgraph/context/ContextFeedPrivate.h"

#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include "Tessarin/platform/queues/Dispatch.h"

#include <algorithm>

namespace Tessarin {

void ContextFeed::add(Ref<ContextFollower> const& follower) {
    if (--untilSweep_ == 0) sweep();
    followers_[follower->onlyTree()].push_back({++lastNumber_, follower});
    ++count_;
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
        auto const followers = concerned(turn); // who is told may begin to follow
        std::size_t ended = 0;
        for (auto const& each : followers)
            if (auto const follower = each.follower.lock())
                follower->follow(turn);
            else
                ++ended;
        if (--untilSweep_ == 0 || (ended != 0 && ended * 2 >= followers.size())) sweep();
    }
    if (!turn_.empty()) isTouched(context); // by whoever was told
}

/// Those whom something of it may concern, in the order in which they came.
ContextFeed::Followers ContextFeed::concerned(ContextTurn const& turn) const {
    Followers result;
    auto const add = [&](Followers const& followers) { result.insert(result.end(), followers.begin(), followers.end()); };
    bool const isAll = turn.hasNewKeys || turn.isEverything;
    std::vector<NSEntityDescription const*> trees;
    for (auto const& record : turn.records) trees.push_back(record.entity->rootEntity());
    std::ranges::sort(trees);
    for (auto const& [tree, followers] : followers_)
        if (isAll || !tree || std::ranges::binary_search(trees, tree) ||
            std::ranges::any_of(turn.sets, [&](auto const& arrival) { return !arrival.set->changesOf(*tree).empty(); }))
            add(followers);
    std::ranges::sort(result, {}, &Follower::number);
    return result;
}

void ContextFeed::sweep() {
    count_ = 0;
    for (auto& [tree, followers] : followers_) {
        std::erase_if(followers, [](Follower const& each) { return each.follower.expired(); });
        count_ += followers.size();
    }
    untilSweep_ = std::max<std::size_t>(64, count_);
    if (count_ != 0) return;
    mustWake_.store(false, std::memory_order_relaxed);
    turn_ = {};
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
