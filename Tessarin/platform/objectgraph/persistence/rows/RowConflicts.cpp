#include "Tessarin/platform/objectgraph/persistence/rows/RowConflictsPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"

#include <algorithm>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
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

/// What several sets do to one record, one after another.
struct Chain {
    std::vector<RecordChange const*> steps;
    std::vector<std::size_t> sets; // of each step
    bool isInserted = false; // by one of the sets: nobody else can know it
    bool isBroken = false;   // a step was not made on the one before it
    bool isDeleted = false;  // by one of the sets, which was a record: who inserts it then brings it back

    RowRef const& base() const { return steps.front()->before; }
    std::uint32_t version() const {
        std::uint32_t highest = 0;
        for (auto const* step : steps)
            for (auto const* row : {step->before.get(), step->after.get()})
                if (row) highest = std::max(highest, row->version());
        return highest;
    }
    void add(RecordChange const& change, std::size_t set) {
        if (!steps.empty() && change.entity != steps.front()->entity)
            throwDamaged(*change.entity, *steps.front()->entity, change.key);
        if (!steps.empty() && (change.kind != Kind::Insert || steps.back()->after))
            isBroken = isBroken || change.before != steps.back()->after;
        bool const isOfNew = !steps.empty() && base() && showsNewRecord(*base());
        bool const isFirst = steps.empty() || isOfNew || (steps.back()->after && !isDeleted);
        isInserted = isInserted || (change.kind == Kind::Insert && isFirst);
        isDeleted = isDeleted || change.kind == Kind::Delete;
        steps.push_back(&change);
        sets.push_back(set);
    }
    /// The set that deleted the record in the end: the first one, where several did.
    std::size_t deletedIn() const {
        auto at = steps.size() - 1;
        while (at > 0 && !steps[at - 1]->after) --at;
        return sets[at];
    }
    /// The last set in which a reference let go of a record; the first one when none says so.
    std::size_t letGoIn(std::size_t cell, RecordKey destination) const {
        for (std::size_t at = steps.size(); at-- > 0;) {
            auto const &before = steps[at]->before, &after = steps[at]->after;
            if (before && after && before->reference(cell) == destination && after->reference(cell) != destination)
                return sets[at];
        }
        return sets.front();
    }
    /// The steps again, on top of `row`. What was deleted stays so unless it is inserted again.
    RowRef on(RowRef row) const {
        for (auto const* step : steps) {
            if (step->kind != Kind::Update)
                row = step->after;
            else if (row)
                row = row == step->before ? step->after : mergedRow(*step->before, *step->after, *row);
        }
        return row;
    }
};

class Reconciliation {
public:
    Reconciliation(std::span<Ref<ChangeSet const> const> sets, StoredRow stored, SetTaker taker)
        : sets_(sets), stored_(stored), taker_(taker) {}

    Ref<NSError> run(ConflictResolver resolve, SaveOutcome& outcome) {
        collect();
        for (auto const& [key, chain] : chains_) lookAt(chain);
        if (!conflicts_.empty()) {
            std::ranges::sort(conflicts_, {}, [](RowConflict const& each) {
                return std::tuple(std::string_view(each.entity->name()), each.key);
            });
            if (auto error = resolve(conflicts_)) return error;
        }
        for (auto const& conflict : conflicts_) rewrite(chains_.at(conflict.key), conflict.stored, conflict.final);
        for (auto const& conflict : conflicts_) agreeWithPartners(conflict);
        if (!spared_.empty()) leadBackToSpared();
        if (!rewritten_.empty()) rewriteSets(outcome);
        return nullptr;
    }

private:
    struct Rewritten {
        std::size_t set = 0;
        RecordChange change; // without relationships; `before` and `after` the same row: nothing but relationships
    };

    void collect() {
        for (std::size_t set = 0; set < sets_.size(); ++set)
            for (auto const& change : sets_[set]->changes())
                if (changesRow(change)) chains_[change.key].add(change, set);
    }

    void lookAt(Chain const& chain) {
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
    static bool isAsSeen(Row const& base, Row const& stored) {
        auto const seen = showsNewRecord(base) ? Row::firstVersion : base.savedVersion();
        return stored.version() <= seen || (base.basis() && isSame(base, stored));
    }

    /// Whether all that happened to a record is that records which it led to are gone: that is nobody's change of it.
    bool differsByCutLinks(Row const& base, Row const& stored) const {
        if (isSame(base, stored) || &base.layout() != &stored.layout()) return false;
        auto const& cells = base.layout().cells();
        for (std::size_t cell = 0; cell < cells.size(); ++cell) {
            if (stored.cellEquals(cell, base)) continue;
            if (cells[cell].type != CellType::Reference || stored.reference(cell) != 0) return false;
            if (stored_(*cells[cell].property->asRelationship()->destinationEntity(), base.reference(cell))) return false;
        }
        return true;
    }

    void rewrite(Chain const& chain, RowRef const& stored, RowRef const& final) {
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

    /// What was decided of one end of a link of one to one holds for the other: whoever led here, on either side, and is not who
    /// is led to now, lets go.
    void agreeWithPartners(RowConflict const& conflict) {
        if (!conflict.final) return; // links to it are cut
        auto const& cells = conflict.final->layout().cells();
        for (std::size_t cell = 0; cell < cells.size(); ++cell) {
            auto const* relationship = cells[cell].property->asRelationship();
            auto const* inverse = relationship && relationship->isReciprocal() ? relationship->inverseRelationship() : nullptr;
            if (cells[cell].type != CellType::Reference || !inverse || inverse->isToMany()) continue;
            auto const now = conflict.final->reference(cell);
            for (auto const& row : {conflict.base, conflict.wanted, conflict.stored})
                if (row && row->reference(cell) != now) lead(row->reference(cell), *inverse, conflict.key, 0, conflict);
            lead(now, *inverse, 0, conflict.key, conflict);
        }
    }
    /// A partner that leads to `from` leads to `to`.
    void lead(RecordKey key, NSRelationshipDescription const& relationship, RecordKey from, RecordKey to,
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
                key, Rewritten{chains_.at(conflict.key).sets.front(),
                               {.kind = Kind::Update, .key = key, .entity = &row->entity(), .before = stored, .after = after}});
    }

    /// Whatever let go of a record only because that was deleted leads to it again, since the deletion was given up: references
    /// here, links of many to many below. What had let go of it in an earlier save meant it.
    void leadBackToSpared() {
        for (auto const& [key, chain] : chains_) {
            auto const found = rewritten_.find(key);
            auto const final = found == rewritten_.end() ? chain.steps.back()->after : found->second.change.after;
            auto restored = final && chain.base() ? leadingBack(chain, *final) : RowRef();
            if (!restored) continue;
            auto const stored =
                found == rewritten_.end() ? stored_(*chain.steps.front()->entity, key) : found->second.change.before;
            rewritten_.erase(key);
            rewrite(chain, stored, restored);
        }
    }
    /// Null where nothing was let go of.
    RowRef leadingBack(Chain const& chain, Row const& final) {
        auto const& base = *chain.base();
        if (&base.layout() != &final.layout()) return nullptr;
        auto const& cells = base.layout().cells();
        bool isFound = false;
        for (std::size_t cell = 0; cell < cells.size(); ++cell) {
            if (cells[cell].type != CellType::Reference || final.reference(cell) != 0) continue;
            auto const spared = spared_.find(base.reference(cell));
            if (spared == spared_.end() || chain.letGoIn(cell, spared->first) < spared->second) continue;
            if (!std::exchange(isFound, true)) builder_.begin(final, final.version());
            builder_.setReference(cell, base.reference(cell));
        }
        return isFound ? builder_.finish() : RowRef();
    }
    /// Nobody is linked with a record that is gone, nor loses one whose deletion was given up.
    std::vector<RelationshipChange> decided(std::vector<RelationshipChange> relationships, std::size_t set) const {
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

    void rewriteSets(SaveOutcome& outcome) {
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

    std::span<Ref<ChangeSet const> const> sets_;
    StoredRow stored_;
    SetTaker taker_;
    std::unordered_map<RecordKey, Chain> chains_;
    std::vector<RowConflict> conflicts_;
    std::unordered_map<RecordKey, Rewritten> rewritten_;
    std::unordered_map<RecordKey, std::size_t> spared_; // whose deletions were given up, with the sets of these
    std::unordered_set<RecordKey> gone_;
    RowBuilder builder_;
};

} // namespace

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
