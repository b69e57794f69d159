#include "Tessarin/platform/objectgraph/persistence/stores/KeyPromotionsPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStore.h"

// Any thread may ask and add; everything is under `mutex_`, also the store's `reserveKeys`, so that one record never gets two
// keys. The store takes locks of its own in there and never comes back here. `count_` is the exception: it is raised with
// release after the entry stands in the tables, and read with acquire without the lock, so that those without promotions, and
// they are most, pay a load. Whoever reads 0 may miss an entry that is just being made; nobody has heard of its permanent key
// by then, for that leaves here with `permanentKey` and travels to other threads in published sets, whose own lock orders the
// count before the question. What a context has `seen` is its own, changed on its queue alone; the copies in `seen_` only tell
// how much of the log is needed.
namespace Tessarin {

RecordKey KeyPromotions::permanentKey(RecordKey temporary, NSPersistentStore& store, Ref<NSError>& error) {
    if (auto const known = permanentKey(temporary)) return known;
    auto const made = store.reserveKeys(1, error); // without the lock, for who writes looks at promotions
    if (error) return 0;
    std::lock_guard const hold(mutex_);
    if (auto const known = permanent_.find(temporary)) return known; // given meanwhile: the key made here stays unused
    permanent_.add(temporary, made);
    log_.emplace_back(temporary, made);
    temporary_.emplace(made, temporary);
    count_.fetch_add(1, std::memory_order_release);
    return made;
}

RecordKey KeyPromotions::permanentKey(RecordKey temporary) const {
    if (count() == 0) return 0;
    std::lock_guard const hold(mutex_);
    return permanent_.find(temporary);
}

RecordKey KeyPromotions::temporaryKey(RecordKey permanent) const {
    if (count() == 0) return 0;
    std::lock_guard const hold(mutex_);
    auto const found = temporary_.find(permanent);
    return found == temporary_.end() ? 0 : found->second;
}

std::size_t KeyPromotions::join() {
    std::lock_guard const hold(mutex_);
    return *seen_.insert(count());
}

KeyPromotions::Log KeyPromotions::advance(std::size_t& seen) {
    std::lock_guard const hold(mutex_);
    auto const unseen = static_cast<std::ptrdiff_t>(count() - seen);
    Log const news(log_.end() - unseen, log_.end());
    seen_.erase(seen_.find(seen));
    seen = *seen_.insert(count());
    forgetSeen();
    return news;
}

void KeyPromotions::leave(std::size_t seen) {
    std::lock_guard const hold(mutex_);
    seen_.erase(seen_.find(seen));
    forgetSeen();
}

void KeyPromotions::forgetSeen() {
    auto const kept = seen_.empty() ? 0 : count() - *seen_.begin();
    for (; log_.size() > kept; log_.pop_front()) temporary_.erase(log_.front().second);
}

} // namespace Tessarin
