#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"

#include <algorithm>
#include <compare>

namespace Tessarin {
namespace {

struct Place {
    RecordKey key;
    std::size_t at; // where the change stands now
    auto operator<=>(Place const&) const = default;
};

/// Sorts what is small, root by root, and then moves each change once. New records come with their keys in sequence, so that
/// mostly there is nothing to sort within a root.
void sortChanges(std::vector<RecordChange>& changes) {
    std::vector<std::vector<Place>> roots;
    for (std::size_t at = 0; at < changes.size(); ++at) {
        auto const root = changes[at].entity->rootEntity()->index();
        if (root >= roots.size()) roots.resize(root + 1);
        roots[root].push_back({changes[at].key, at});
    }
    std::vector<RecordChange> sorted;
    sorted.reserve(changes.size());
    for (auto& places : roots) {
        if (!std::ranges::is_sorted(places)) std::ranges::sort(places);
        for (auto const& place : places) sorted.push_back(std::move(changes[place.at]));
    }
    changes = std::move(sorted);
}

} // namespace

ChangeSet::ChangeSet(Ref<RowSpace> space, std::vector<RecordChange> changes, Ref<ChangeOrigin const> origin,
                     Ref<UndoableStep const> undoStep)
    : space_(std::move(space)), origin_(std::move(origin)), changes_(std::move(changes)), undoStep_(std::move(undoStep)) {
    sortChanges(changes_);
    changedRows_.resize(space_->model().entities().size());
    for (auto const& change : changes_) {
        if (change.changesRow()) ++changedRows_[change.entity->index()];
        if (change.changesRow() && change.kind != RecordChange::Kind::Insert) updates_.push_back(&change);
        changesRelationships_ = changesRelationships_ || !change.relationships.empty();
    }
}

std::span<RecordChange const> ChangeSet::changesOf(NSEntityDescription const& rootEntity) const noexcept {
    auto const range = std::ranges::equal_range(changes_, rootEntity.index(), {},
                                                [](RecordChange const& change) { return change.entity->rootEntity()->index(); });
    return {range.begin(), range.end()};
}

std::optional<std::vector<RecordKey>> ChangeSet::keysWith(NSEntityDescription const& rootEntity,
                                                          NSAttributeDescription const& attribute, Value const& value) const {
    auto const changes = changesOf(rootEntity);
    auto const places = index_.find(changes, attribute, value);
    if (!places) return {};
    std::vector<RecordKey> keys;
    for (auto const at : *places) keys.push_back(changes[at].key);
    return keys;
}

std::vector<RecordKey> ChangeSet::keysWith(UniqueConstraint const& constraint, std::string const& values) const {
    auto const changes = changesOf(*constraint.entity->rootEntity());
    std::vector<RecordKey> keys;
    if (changes.empty()) return keys;
    for (auto const at : index_.find(changes, constraint, values)) keys.push_back(changes[at].key);
    return keys;
}

std::vector<RecordKey> ChangeSet::firstInserted(NSEntityDescription const& rootEntity, ChangeOrder::Descriptors descriptors,
                                                std::size_t count, FunctionRef<bool(RecordChange const&)> accepts) const {
    auto const changes = changesOf(rootEntity);
    for (std::size_t looked = count;; looked *= 8) {
        std::vector<RecordKey> keys;
        auto const first = order_.first(*this, rootEntity, descriptors, looked);
        for (auto const at : first->places)
            if (keys.size() < count && accepts(changes[at])) keys.push_back(changes[at].key);
        if (keys.size() == count || first->isAll) return keys;
        looked = std::max(looked, first->places.size());
    }
}

void ChangeSet::prepare() const {
    static constexpr std::size_t fewest = 256; // changes: with less whoever asks is as quick
    if (changes_.size() < fewest) return;
    for (auto const& question : space_->questions().forNextSet())
        if (question.equal)
            index_.prepare(changesOf(*question.equal->entity()->rootEntity()), *question.equal);
        else
            order_.first(*this, *question.tree, question.order, 0);
}

RecordChange const* ChangeSet::find(NSEntityDescription const& entity, RecordKey key) const noexcept {
    auto const changes = changesOf(*entity.rootEntity());
    auto const found = std::ranges::lower_bound(changes, key, {}, &RecordChange::key);
    return found != changes.end() && found->key == key ? &*found : nullptr;
}

} // namespace Tessarin
