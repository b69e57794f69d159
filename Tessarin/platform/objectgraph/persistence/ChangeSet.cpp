#include "Tessarin/platform/objectgraph/persistence/ChangeSet.h"

#include <algorithm>
#include <tuple>

namespace Tessarin {
namespace {

auto placeOf(RecordChange const& change) { return std::tuple(change.entity->rootEntity()->index(), change.key); }

} // namespace

ChangeSet::ChangeSet(Ref<RowSpace> space, std::vector<RecordChange> changes) : space_(std::move(space)), changes_(std::move(changes)) {
    auto const earlier = [](RecordChange const& a, RecordChange const& b) { return placeOf(a) < placeOf(b); };
    if (!std::ranges::is_sorted(changes_, earlier)) std::ranges::sort(changes_, earlier);
}

std::span<RecordChange const> ChangeSet::changesOf(NSEntityDescription const& rootEntity) const noexcept {
    auto const range = std::ranges::equal_range(changes_, rootEntity.index(), {}, [](RecordChange const& change) { return change.entity->rootEntity()->index(); });
    return {range.begin(), range.end()};
}

RecordChange const* ChangeSet::find(NSEntityDescription const& entity, RecordKey key) const noexcept {
    auto const changes = changesOf(*entity.rootEntity());
    auto const found = std::ranges::lower_bound(changes, key, {}, &RecordChange::key);
    return found != changes.end() && found->key == key ? &*found : nullptr;
}

} // namespace Tessarin
