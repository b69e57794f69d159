#include "Tessarin/platform/objectgraph/persistence/rows/RowConflictsPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/ReconciliationPrivate.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace Tessarin {
namespace {

using Kind = RecordChange::Kind;

/// Who brings back what others have deleted does not know how often they had changed it before.
constexpr std::uint32_t unseenBeforeDeletion = 1024;

bool changesRow(RecordChange const& change) { return change.kind != Kind::Update || change.before != change.after; }

bool isSame(Row const& a, Row const& b) {
    if (&a.layout() != &b.layout()) return false;
    for (std::size_t cell = 0; cell < a.layout().cells().size(); ++cell)
        if (!a.cellEquals(cell, b)) return false;
    return true;
}

} // namespace

Ref<NSError> Reconciliation::run(ConflictResolver resolve, SaveOutcome& outcome) {
    collect();
    for (auto const& [key, chain] : chains_) lookAt(chain);
    if (!conflicts_.empty()) {
        std::ranges::sort(conflicts_, {},
                          [](RowConflict const& each) { return std::tuple(std::string_view(each.entity->name()), each.key); });
        if (auto error = resolve(conflicts_)) return error;
    }
    for (auto const& conflict : conflicts_) rewrite(chains_.at(conflict.key), conflict.stored, conflict.final);
    for (auto const& conflict : conflicts_) agreeWithPartners(conflict);
    if (!spared_.empty()) leadBackToSpared();
    if (!rewritten_.empty()) rewriteSets(outcome);
    return nullptr;
}

void Reconciliation::collect() {
    for (std::size_t set = 0; set < sets_.size(); ++set)
        for (auto const& change : sets_[set]->changes())
            if (changesRow(change)) chains_[change.key].add(change, set);
}

void Reconciliation::lookAt(ChangeChain const& chain) {
    auto const& first = *chain.steps.front();
    bool const isNew = chain.isInserted && first.kind == Kind::Insert;
    // A record that had been deleted was inserted again, and somebody else may have done the same.
    bool const mayExist = !isNew || first.after->version() > Row::firstVersion;
    auto const stored = mayExist ? stored_(*first.entity, first.key) : RowRef();
    if (stored && &stored->entity() != first.entity) throwDamaged(stored->entity(), *first.entity, first.key);
    if (chain.isInserted || !chain.base()) {
        if (chain.isBroken || (isNew && stored)) rewrite(chain, stored, chain.on(chain.base()));
        return;
    }
    if (stored && isAsSeen(*chain.base(), *stored)) {
        bool const isOnUnsaved = chain.base()->basis() || showsNewRecord(*chain.base()); // which may have changed since
        if (chain.isBroken || stored->version() != chain.base()->version() || isOnUnsaved)
            rewrite(chain, stored, chain.on(stored));
        return;
    }
    auto const base = savedRowOf(chain.base()); // what others have not saved is no part of the conflict
    if (stored && differsByCutLinks(*base, *stored)) return rewrite(chain, stored, chain.on(stored));
    auto wanted = chain.on(base);
    bool const isGoneOnBothSides = !stored && !wanted;
    bool const wasNeverSaved = !stored && showsNewRecord(*chain.base());
    if (isGoneOnBothSides || wasNeverSaved) { // nor does what was made on it meanwhile reach a store
        bool const isTold = wasNeverSaved || chain.steps.back()->after; // a deletion tells it itself
        if (taker_ == SetTaker::Store && isTold) rewrite(chain, nullptr, nullptr);
        return;
    }
    conflicts_.push_back({first.entity, first.key, base, std::move(wanted), stored, stored});
}

/// Whether nobody has changed a record since it was read: also where it was shown as others had not saved it yet, and they
/// have saved just that.
bool Reconciliation::isAsSeen(Row const& base, Row const& stored) {
    auto const seen = showsNewRecord(base) ? Row::firstVersion : base.savedVersion();
    return stored.version() <= seen || (base.basis() && isSame(base, stored));
}

/// Whether all that happened to a record is that records which it led to are gone: that is nobody's change of it.
bool Reconciliation::differsByCutLinks(Row const& base, Row const& stored) const {
    if (isSame(base, stored) || &base.layout() != &stored.layout()) return false;
    auto const& cells = base.layout().cells();
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        if (stored.cellEquals(cell, base)) continue;
        if (cells[cell].type != CellType::Reference || stored.reference(cell) != 0) return false;
        if (stored_(*cells[cell].property->asRelationship()->destinationEntity(), base.reference(cell))) return false;
    }
    return true;
}

void Reconciliation::rewrite(ChangeChain const& chain, RowRef const& stored, RowRef const& final) {
    auto const& first = *chain.steps.front();
    if (final && !chain.steps.back()->after) spared_.emplace(first.key, chain.deletedIn());
    if (!final) gone_.insert(first.key);
    // What was made on a record that was never saved, and is gone, does not make it one.
    bool const isOfUnsaved = !stored && !chain.isInserted && chain.base() && showsNewRecord(*chain.base());
    auto const& before = isOfUnsaved && final ? chain.base() : stored;
    Rewritten made{chain.sets.front(), {.kind = Kind::Delete, .key = first.key, .entity = first.entity, .before = before}};
    if (final) made.change.kind = before ? Kind::Update : Kind::Insert;
    auto const& last = chain.steps.back()->after;
    bool const isBack = final && !stored && !chain.isInserted; // others have deleted it
    bool const isLast = final && last && last->key() == first.key && isSame(*final, *last);
    if (isLast && !isBack && (!stored || last->version() > stored->version())) {
        made.change.after = last; // which others may have built on already
    } else if (final) {
        // Above every version that anybody may have seen of it, so that all take this one.
        auto const seen = std::max(chain.version(), stored ? stored->version() : 0);
        builder_.begin(*final, first.key, seen + (isBack ? unseenBeforeDeletion : 1));
        made.change.after = builder_.finish();
    }
    rewritten_.emplace(first.key, std::move(made));
}

void Reconciliation::rewriteSets(SaveOutcome& outcome) {
    std::vector<std::vector<RecordKey>> partners(sets_.size()); // that no set changes itself
    for (auto const& [key, made] : rewritten_)
        if (!chains_.contains(key)) partners[made.set].push_back(key);
    for (std::size_t set = 0; set < sets_.size(); ++set) {
        std::vector<RecordChange> changes;
        for (auto const& change : sets_[set]->changes()) {
            auto const found = rewritten_.find(change.key);
            if (found == rewritten_.end()) {
                auto kept = change;
                kept.relationships = decided(std::move(kept.relationships), set);
                if (kept.changesRow() || !kept.relationships.empty()) changes.push_back(std::move(kept));
                continue;
            }
            auto made = found->second.change;
            if (found->second.set != set) {
                made.kind = made.after ? Kind::Update : Kind::Delete;
                made.before = made.after;
            }
            if (made.after) made.relationships = decided(change.relationships, set);
            if (made.before != made.after || !made.relationships.empty()) changes.push_back(std::move(made));
        }
        for (auto const key : partners[set]) changes.push_back(rewritten_.at(key).change);
        outcome.sets.push_back(std::make_shared<ChangeSet const>(sets_[set]->sharedSpace(), std::move(changes),
                                                                 sets_[set]->origin(), sets_[set]->undoStep()));
    }
    for (auto const& [key, made] : rewritten_) {
        auto change = made.change;
        change.kind = change.after ? Kind::Update : Kind::Delete;
        change.before = {}; // whatever a context has of it
        outcome.corrected.push_back(std::move(change));
    }
}

RowRef resolvedRow(RowConflict const& conflict, NSMergePolicyType policy) {
    bool const objectWins = policy == NSMergePolicyType::MergeByPropertyObjectTrump || policy == NSMergePolicyType::Overwrite;
    bool const byProperty =
        policy == NSMergePolicyType::MergeByPropertyStoreTrump || policy == NSMergePolicyType::MergeByPropertyObjectTrump;
    auto const& [entity, key, base, wanted, stored, final] = conflict;
    if (!wanted || !stored || !byProperty) return objectWins ? wanted : stored;
    return objectWins ? mergedRow(*base, *wanted, *stored) : mergedRow(*base, *stored, *wanted);
}

Ref<NSError> reconcile(std::span<Ref<ChangeSet const> const> sets, StoredRow stored, ConflictResolver resolve,
                       SaveOutcome& outcome, SetTaker taker) {
    return Reconciliation(sets, stored, taker).run(resolve, outcome);
}

} // namespace Tessarin
