#include "Tessarin/platform/objectgraph/context/PublishedChangesPrivate.h"

#include <algorithm>
#include <utility>

namespace Tessarin {

void PublishedChanges::receive(ChangeSets const& sets) {
    std::lock_guard const hold(mutex_);
    auto next = std::make_shared<ChangeSets>(*current_);
    next->insert(next->end(), sets.begin(), sets.end());
    current_ = std::move(next);
    unapplied_.insert(unapplied_.end(), sets.begin(), sets.end());
}

std::shared_ptr<ChangeSets const> PublishedChanges::current() const {
    std::lock_guard const hold(mutex_);
    return current_;
}

ChangeSets PublishedChanges::takeUnapplied() {
    std::lock_guard const hold(mutex_);
    return std::exchange(unapplied_, {});
}

void PublishedChanges::remove(ChangeSets const& sets) {
    std::shared_ptr<ChangeSets const> before; // released after the lock
    std::lock_guard const hold(mutex_);
    auto next = std::make_shared<ChangeSets>(*current_);
    std::erase_if(*next, [&](auto const& set) { return std::ranges::find(sets, set) != sets.end(); });
    before = std::exchange(current_, std::move(next));
}

} // namespace Tessarin
