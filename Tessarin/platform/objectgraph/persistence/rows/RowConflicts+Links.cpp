// What decided conflicts mean for links: partners of one to one, references to what was to be deleted, members that are gone.
#include "Tessarin/platform/objectgraph/persistence/rows/ReconciliationPrivate.h"

#include <algorithm>
#include <utility>

namespace Tessarin {

/// What was decided of one end of a link of one to one holds for the other: whoever led here, on either side, and is not who
/// is led to now, lets go. Where both ends were decided, and differently, the one that was asked about first leads.
void Reconciliation::agreeWithPartners(RowConflict const& conflict) {
    if (!conflict.final) return; // links to it are cut
    auto const& made = rewritten_.at(conflict.key).change;
    auto const& cells = made.after->layout().cells();
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        auto const* relationship = cells[cell].property->asRelationship();
        auto const* inverse = relationship && relationship->isReciprocal() ? relationship->inverseRelationship() : nullptr;
        if (cells[cell].type != CellType::Reference || !inverse || inverse->isToMany()) continue;
        auto const now = made.after->reference(cell); // which a partner may have decided by now
        for (auto const& row : {conflict.base, conflict.wanted, conflict.stored})
            if (row && row->reference(cell) != now) lead(row->reference(cell), *inverse, conflict.key, 0, conflict);
        lead(now, *inverse, 0, conflict.key, conflict);
    }
}

/// A partner that leads to `from` leads to `to`.
void Reconciliation::lead(RecordKey key, NSRelationshipDescription const& relationship, RecordKey from, RecordKey to,
                          RowConflict const& conflict) {
    if (key == 0) return;
    auto const chain = chains_.find(key);
    auto const made = rewritten_.find(key);
    bool const isChanged = chain != chains_.end();
    auto const stored = made != rewritten_.end() ? made->second.change.before : stored_(*relationship.entity(), key);
    auto const row = made != rewritten_.end() ? made->second.change.after
                     : isChanged              ? chain->second.steps.back()->after
                                              : stored;
    auto const cell = row ? row->layout().cellOf(relationship.index()) : RowLayout::noCell;
    if (cell == RowLayout::noCell || row->reference(static_cast<std::size_t>(cell)) != from) return;
    builder_.begin(*row, row->version() + 1);
    builder_.setReference(static_cast<std::size_t>(cell), to);
    auto const after = builder_.finish();
    if (made != rewritten_.end())
        made->second.change.after = after;
    else if (isChanged)
        rewrite(chain->second, stored, after);
    else
        rewritten_.emplace(
            key,
            Rewritten{
                chains_.at(conflict.key).sets.front(),
                {.kind = RecordChange::Kind::Update, .key = key, .entity = &row->entity(), .before = stored, .after = after}});
}

/// Whatever let go of a record only because that was deleted leads to it again, since the deletion was given up: references
/// here, links of many to many below. What had let go of it in an earlier save meant it.
void Reconciliation::leadBackToSpared() {
    for (auto const& [key, chain] : chains_) {
        auto const found = rewritten_.find(key);
        auto const final = found == rewritten_.end() ? chain.steps.back()->after : found->second.change.after;
        if (!final || !chain.base()) continue;
        auto const stored = found == rewritten_.end() ? stored_(*chain.steps.front()->entity, key) : found->second.change.before;
        auto restored = leadingBack(chain, *final, stored);
        if (!restored) continue;
        rewritten_.erase(key);
        rewrite(chain, stored, restored);
    }
}

/// Null where nothing was let go of, or others have let go of it as well.
RowRef Reconciliation::leadingBack(ChangeChain const& chain, Row const& final, RowRef const& stored) {
    auto const& base = *chain.base();
    if (&base.layout() != &final.layout()) return nullptr;
    auto const& cells = base.layout().cells();
    bool isFound = false;
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        if (cells[cell].type != CellType::Reference || final.reference(cell) != 0) continue;
        auto const spared = spared_.find(base.reference(cell));
        if (spared == spared_.end() || chain.letGoIn(cell, spared->first) < spared->second) continue;
        if (stored && stored->reference(cell) != spared->first) continue;
        if (!std::exchange(isFound, true)) builder_.begin(final, final.version());
        builder_.setReference(cell, base.reference(cell));
    }
    return isFound ? builder_.finish() : RowRef();
}

/// Nobody is linked with a record that is gone, nor loses one whose deletion was given up.
std::vector<RelationshipChange> Reconciliation::decided(std::vector<RelationshipChange> relationships, std::size_t set) const {
    if (spared_.empty() && gone_.empty()) return relationships;
    for (auto& each : relationships) {
        auto const* inverse = each.relationship->inverseRelationship();
        if (!inverse || !inverse->isToMany()) continue;
        std::erase_if(each.added, [&](RecordKey key) { return gone_.contains(key); });
        std::erase_if(each.removed, [&](RecordKey key) {
            auto const spared = spared_.find(key);
            return spared != spared_.end() && spared->second <= set;
        });
    }
    std::erase_if(relationships, [](auto const& each) { return each.added.empty() && each.removed.empty() && !each.order; });
    return relationships;
}

} // namespace Tessarin
