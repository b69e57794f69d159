#include "Tessarin/platform/objectgraph/persistence/rows/OthersChangesPrivate.h"

namespace Tessarin {

void OthersChanges::add(Ref<OthersChangesTaker> const& taker) {
    std::lock_guard const hold(mutex_);
    std::erase_if(takers_, [](auto const& each) { return each.expired(); });
    takers_.push_back(taker);
}

std::vector<Ref<OthersChangesTaker>> OthersChanges::living() const {
    std::vector<Ref<OthersChangesTaker>> found;
    std::lock_guard const hold(mutex_);
    for (auto const& each : takers_)
        if (auto taker = each.lock()) found.push_back(std::move(taker));
    return found;
}

void OthersChanges::tell(Ref<ChangeSet const> const& set) const {
    for (auto const& taker : living()) taker->take(set);
}

void OthersChanges::tellEverything() const {
    for (auto const& taker : living()) taker->takeEverything();
}

} // namespace Tessarin
