#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace Tessarin {
namespace {

/// The row after a change, on top of what was there: `change.after` itself unless others changed the record meanwhile. Then an
/// accepted change counts more than what was there, and an unsaved one less.
RowRef rowAfter(RecordChange const& change, RowRef const& current, bool isUnsaved) {
    if (!change.after || !current || current == change.before) return change.after ? change.after : current;
    if (current == change.after) return current;
    if (!change.before) return isUnsaved ? current : change.after;
    if (isUnsaved) return shownRow(*change.before, *change.after, current);
    if (!current->basis()) return mergedRow(*change.before, *change.after, *current);
    // It shows what an ancestor has not saved: it does so on top of the change, too.
    auto const& bottom = savedRowOf(current);
    auto const saved = bottom == change.before ? change.after : mergedRow(*change.before, *change.after, *bottom);
    return shownRow(*bottom, *current, saved);
}

struct Level {
    PublishedChanges const* published;
    PublishedChanges::Reading reading;
};

ContextState const* above(ContextState const* context) {
    return context->parent ? &GraphAccess::state(*context->parent) : nullptr;
}

/// Whether no level from a context up has published anything, at one moment: mostly so, and quickly seen.
bool nothingIsPublished(ContextState const& context) {
    std::array<std::uint64_t, 8> states{};
    std::size_t depth = 0;
    for (auto const* at = &context; at; at = above(at)) {
        auto const state = at->published.stateWithoutSets();
        if (!state || depth == states.size()) return false;
        states[depth++] = *state;
    }
    depth = 0;
    for (auto const* at = &context; at; at = above(at))
        if (at->published.stateWithoutSets() != states[depth++]) return false;
    return true;
}

/// What the levels from a context up have published, at one moment.
std::vector<Level> levelsAt(ContextState const& context) {
    std::size_t depth = 0;
    for (auto const* at = &context; at; at = above(at)) ++depth;
    std::vector<Level> levels;
    levels.reserve(depth);
    for (auto const* at = &context; at; at = above(at)) levels.push_back({&at->published, {}});
    for (;;) {
        for (auto& level : levels) level.reading = level.published->forReading();
        std::size_t same = 0; // what nothing has left meanwhile has not moved up between two looks; nothing is above the last
        while (same + 1 < depth && levels[same].published->state() == levels[same].reading.state) ++same;
        if (same + 1 == depth) return levels;
    }
}

} // namespace

RecordReader::RecordReader(ContextState& context, Sees sees)
    : coordinator_(context.coordinator), store_(coordinator_ ? coordinator_->store() : nullptr) {
    if (nothingIsPublished(context)) return;
    auto const levels = levelsAt(context);
    auto const add = [&](std::shared_ptr<ChangeSets const> const& sets) {
        if (sets) sets_.insert(sets_.end(), sets->begin(), sets->end());
    };
    for (auto level = levels.rbegin(); level != levels.rend(); ++level) {
        auto const& [published, reading] = *level;
        if (sees != Sees::Accepted) add(reading.aside);
        add(reading.sets);
        bool const isOwn = std::next(level) == levels.rend(); // whose unsaved changes are in its objects
        if (sees != Sees::Unsaved || isOwn || !reading.unsaved) continue;
        isUnsaved_.resize(sets_.size());
        add(reading.unsaved);
        isUnsaved_.resize(sets_.size(), true);
    }
}

bool RecordReader::hasChangesOf(NSEntityDescription const& entity) const {
    return std::ranges::any_of(sets_, [&](auto const& set) { return !set->changesOf(*entity.rootEntity()).empty(); });
}

bool RecordReader::knowsUnsaved(RecordKey key) const {
    return std::ranges::any_of(coordinator_->managedObjectModel()->entities(),
                               [&](auto const& entity) { return !entity->superentity() && pending(*entity, key).row; });
}

RecordKey RecordReader::formerKey(RecordKey key) const { return key > 0 ? coordinator_->promotions().temporaryKey(key) : 0; }

bool RecordReader::isInserted(NSEntityDescription const& entity, RecordKey key) const {
    auto const former = formerKey(key);
    return std::ranges::any_of(sets_, [&](auto const& set) {
        auto const* change = set->find(entity, key);
        if (!change && former != 0) change = set->find(entity, former);
        return change && change->kind == RecordChange::Kind::Insert;
    });
}

RecordReader::Pending RecordReader::pending(NSEntityDescription const& entity, RecordKey key) const {
    Pending result;
    auto const before = formerKey(key);
    for (std::size_t at = 0; at < sets_.size(); ++at) {
        auto const& set = sets_[at];
        auto const* change = set->find(entity, key);
        if (!change && before != 0) change = set->find(entity, before);
        if (!change) continue;
        if (change->kind == RecordChange::Kind::Delete) {
            result = {true, {}, isUnsaved(at)};
            continue;
        }
        bool const isGone = result.isKnown && !result.row;
        if (isGone && change->kind == RecordChange::Kind::Update) continue; // only an insertion brings it back
        if (!change->changesRow()) continue; // its to-many relationships say nothing of the row, which others may change
        result = {true, rowAfter(*change, result.row, isUnsaved(at)), isUnsaved(at)};
    }
    return result;
}

RowRef RecordReader::row(NSEntityDescription const& entity, RecordKey key, bool fresh) const {
    RowRef result;
    rows(
        entity, {&key, 1}, [&](RowRef row) { result = std::move(row); }, fresh);
    return result;
}

bool RecordReader::shows(RecordChange const& change) const {
    auto const permanent = change.key < 0 ? coordinator_->promotions().permanentKey(change.key) : 0;
    auto const key = permanent != 0 ? permanent : change.key;
    auto const found = pending(*change.entity, key);
    return (found.isKnown ? found.row : row(*change.entity, key)) == change.after;
}

void RecordReader::rows(NSEntityDescription const& entity, std::span<RecordKey const> keys, FunctionRef<void(RowRef)> each,
                        bool fresh) const {
    std::vector<RecordKey> wanted;
    for (auto key : keys) {
        if (key < 0)
            if (auto const permanent = coordinator_->promotions().permanentKey(key)) key = permanent;
        if (!sets_.empty())
            if (auto const found = pending(entity, key); found.isKnown) {
                if (found.row) each(found.row);
                continue;
            }
        if (!fresh)
            if (auto cached = coordinator_->space()->cache().find(key)) {
                requireSameTree(cached->entity(), entity, key);
                each(std::move(cached));
                continue;
            }
        if (key > 0) wanted.push_back(key);
    }
    if (wanted.empty() || !store_) return;
    if (auto error = store_->rows(*entity.rootEntity(), wanted, each)) throw ErrorException(error);
}

} // namespace Tessarin
