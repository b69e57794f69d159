#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/model/NSRelationshipDescription.h"
#include "Tessarin/platform/queues/Queue.h"

#include <algorithm>
#include <atomic>
#include <compare>

namespace Tessarin {
namespace {

constexpr std::size_t fewest = 256; // changes: with less whoever asks is as quick

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

/// A key behind those that are there.
void append(RecordKey key, std::vector<KeyRange>& ranges) {
    if (key < 0) return;
    if (!ranges.empty() && ranges.back().last + 1 == key)
        ranges.back().last = key;
    else
        ranges.push_back({key, key});
}

/// Whether it is known which are the first.
bool isOfFirst(ChangeQuestion const& question) { return question.count != 0 && (!question.search || question.ranking); }

std::uint64_t nextNumber() {
    static std::atomic<std::uint64_t> last{0};
    return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

bool mayLeadElsewhere(RecordChange const& change) {
    if (!change.after || !change.changesRow()) return false;
    if (!change.before) return change.after->version() != Row::firstVersion; // a new record has led nowhere
    auto const cells = change.after->layout().cells();
    for (std::size_t cell = 0; cell < cells.size(); ++cell)
        if (cells[cell].type == CellType::Reference && !change.after->cellEquals(cell, *change.before)) return true;
    return false;
}

} // namespace

ChangeSet::ChangeSet(Ref<RowSpace> space, std::vector<RecordChange> changes, Ref<ChangeOrigin const> origin,
                     Ref<UndoableStep const> undoStep)
    : space_(std::move(space)),
      origin_(std::move(origin)),
      changes_(std::move(changes)),
      undoStep_(std::move(undoStep)),
      number_(nextNumber()) {
    sortChanges(changes_);
    changedRows_.resize(space_->model().entities().size());
    updates_.resize(changedRows_.size());
    keysOfRows_.resize(changedRows_.size());
    for (auto const& change : changes_) {
        if (change.changesRow()) {
            ++changedRows_[change.entity->index()];
            append(change.key, keysOfRows_[change.entity->rootEntity()->index()]);
        }
        if (change.changesRow() && change.kind == RecordChange::Kind::Update)
            updates_[change.entity->rootEntity()->index()] = true;
        if (change.kind == RecordChange::Kind::Delete) deletedKeys_.push_back(change.key);
        if (mayLeadElsewhere(change)) movedRecords_.push_back(static_cast<std::uint32_t>(&change - changes_.data()));
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

std::vector<RecordKey> ChangeSet::keysReferring(NSEntityDescription const& rootEntity,
                                                NSRelationshipDescription const& relationship, RecordKey key) const {
    auto const changes = changesOf(rootEntity);
    std::vector<RecordKey> keys;
    for (auto const at : index_.find(changes, relationship, key)) keys.push_back(changes[at].key);
    return keys;
}

std::vector<RecordChange const*> ChangeSet::matching(ChangeQuestion const& question) const {
    auto const changes = changesOf(question.tree());
    std::vector<RecordChange const*> found;
    for (auto const at : matches_.find(changes, index_, question)->places) found.push_back(&changes[at]);
    return found;
}

std::vector<RecordChange const*> ChangeSet::first(ChangeQuestion const& question,
                                                  FunctionRef<bool(RecordChange const&)> accepts) const {
    auto const changes = changesOf(question.tree());
    for (std::size_t looked = question.count;; looked *= 8) {
        std::vector<RecordChange const*> found;
        auto const first = order_.first(*this, question, looked, [&] { return matches_.find(changes, index_, question); });
        for (auto const at : first->places)
            if (found.size() < question.count && accepts(changes[at])) found.push_back(&changes[at]);
        if (found.size() == question.count || first->isAll) return found;
        looked = std::max(looked, first->places.size());
    }
}

bool ChangeSet::isReadyFor(ChangeQuestion const& question) const {
    if (changesOf(question.tree()).size() < fewest) return true;
    if (!hasIndexFor(question)) return false;
    if (!isLongToAsk(question)) return true;
    return isOfFirst(question) ? order_.knows(question) : !question.condition || matches_.knows(question);
}

bool ChangeSet::hasIndexFor(ChangeQuestion const& question) const {
    auto const* relationship = question.link.relationship;
    return (!question.equal || index_.knows(*question.equal)) && (!relationship || index_.knows(*relationship));
}

/// Beyond what the index says: few with a value, or a link, are looked at quickly.
bool ChangeSet::isLongToAsk(ChangeQuestion const& question) const {
    if (!question.entity) return false;
    auto const changes = changesOf(question.tree());
    if (question.equal && index_.count(changes, *question.equal, question.equalTo) <= ChangeQuestion::few) return false;
    if (!question.link.relationship) return true;
    std::size_t linked = 0;
    for (auto const key : question.link.keys) linked += index_.count(changes, *question.link.relationship, key);
    return linked > ChangeQuestion::few;
}

void ChangeSet::makeReadyFor(ChangeQuestion const& question, std::atomic<bool> const* isGivenUp) const {
    if (isReadyFor(question)) return;
    if (question.equal) index_.prepare(changesOf(question.tree()), *question.equal);
    if (question.link.relationship) index_.prepare(changesOf(question.tree()), *question.link.relationship);
    if (!isLongToAsk(question)) return;
    auto const matches = [&] { return matches_.find(changesOf(question.tree()), index_, question, isGivenUp); };
    if (isOfFirst(question))
        order_.first(*this, question, question.count, matches);
    else if (question.condition)
        matches();
}

void ChangeSet::prepare() const {
    if (changes_.size() < fewest) return;
    bool const isMain = queueIsHeld(dispatch_get_main_queue()); // then there is nobody to be spared long work
    for (auto const& question : space_->questions().forNextSet())
        if (!isMain || !question.condition) makeReadyFor(question);
}

RecordChange const* ChangeSet::find(NSEntityDescription const& entity, RecordKey key) const noexcept {
    auto const changes = changesOf(*entity.rootEntity());
    auto const found = std::ranges::lower_bound(changes, key, {}, &RecordChange::key);
    return found != changes.end() && found->key == key ? &*found : nullptr;
}

} // namespace Tessarin
