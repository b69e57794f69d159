// Batch requests of the store without a file.
#include "Tessarin/platform/objectgraph/persistence/memory/InMemoryStorePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/BatchChangePrivate.h"

#include <algorithm>
#include <mutex>
#include <unordered_set>

namespace Tessarin {
namespace {

void nameRuns(BatchOutcome& outcome) {
    auto const place = [](BatchOutcome::Record const& record) {
        return std::pair{record.entity->rootEntity()->index(), record.key};
    };
    std::ranges::sort(outcome.records, {}, place);
    for (auto const& [entity, key] : outcome.records) addToRuns(outcome.runs, *entity, key);
}

} // namespace

/// The rows of the records that are meant; the caller holds the lock.
void InMemoryStore::meant(BatchTarget const& target, BatchOutcome& outcome, std::vector<RowRef>& rows) const {
    auto const& query = target.query;
    bool const asksForSome = query.predicate || query.limit != 0 || query.offset != 0;
    if (asksForSome && !target.keys) {
        outcome.complete = false;
        return;
    }
    auto const records = records_.find(query.entity->rootEntity());
    if (records == records_.end()) return;
    std::unordered_set<RecordKey> wanted;
    if (target.keys) wanted.insert(target.keys->begin(), target.keys->end());
    for (auto const& [key, row] : records->second) {
        if (target.keys && !wanted.contains(key)) continue;
        if (query.includesSubentities ? row->entity().isKindOf(query.entity) : &row->entity() == query.entity)
            rows.push_back(row);
    }
    return;
}

Ref<NSError> InMemoryStore::change(std::vector<RecordChange> changes, BatchOutcome& outcome) {
    Ref<ChangeSet const> const set = std::make_shared<ChangeSet const>(space_, std::move(changes));
    if (auto error = conflictIn({&set, 1})) return error;
    SaveOutcome cut;
    for (auto const& change : set->changes()) {
        apply(change);
        outcome.records.push_back({change.entity, change.key});
        ++outcome.count;
    }
    cutDangling({&set, 1}, cut);
    return nullptr;
}

Ref<NSError> InMemoryStore::updateInBatch(BatchTarget const& target, std::span<BatchAssignment const> assignments,
                                          BatchOutcome& outcome) {
    std::lock_guard const saving(saving_);
    std::lock_guard const hold(mutex_);
    outcome = {};
    if (auto error = closedProblem()) return error;
    std::vector<RowRef> rows;
    meant(target, outcome, rows);
    if (!outcome.complete) return nullptr;
    for (auto const& each : assignments) {
        auto const* relationship = each.property->asRelationship();
        if (!relationship || each.reference == 0) continue;
        auto const destination = row(*relationship->destinationEntity(), each.reference);
        if (!destination || !destination->entity().isKindOf(relationship->destinationEntity()))
            return missingDestination(*relationship, each.reference);
    }
    RowBuilder builder;
    std::vector<RecordChange> changes;
    for (auto const& before : rows) {
        auto const& layout = before->layout();
        builder.begin(*before, before->version() + 1);
        std::vector<Value> taken; // which the builder looks at until the end
        taken.reserve(assignments.size());
        for (auto const& [property, value, reference, source] : assignments) {
            auto const cell = static_cast<std::size_t>(layout.cellOf(property->index()));
            if (property->asRelationship()) {
                builder.setReference(cell, reference);
                continue;
            }
            taken.push_back(source ? before->value(static_cast<std::size_t>(layout.cellOf(source->index()))) : value);
            if (taken.back().isAbsent() && !property->isOptional()) return property->asAttribute()->validate({});
            builder.setValue(cell, taken.back());
        }
        changes.push_back({.kind = RecordChange::Kind::Update,
                           .key = before->key(),
                           .entity = &before->entity(),
                           .before = before,
                           .after = builder.finish(),
                           .relationships = {}});
    }
    return change(std::move(changes), outcome);
}

Ref<NSError> InMemoryStore::deleteInBatch(std::span<BatchTarget const> targets, BatchOutcome& outcome) {
    std::lock_guard const saving(saving_);
    std::lock_guard const hold(mutex_);
    outcome = {};
    if (auto error = closedProblem()) return error;
    std::vector<RowRef> rows;
    for (auto const& target : targets) meant(target, outcome, rows);
    if (!outcome.complete) return nullptr;
    std::vector<RecordChange> changes;
    for (auto const& row : rows)
        changes.push_back({.kind = RecordChange::Kind::Delete,
                           .key = row->key(),
                           .entity = &row->entity(),
                           .before = row,
                           .after = {},
                           .relationships = {}});
    if (auto error = change(std::move(changes), outcome)) return error;
    if (!targets.empty() && targets.front().names == BatchTarget::Names::Runs) nameRuns(outcome);
    return nullptr;
}

} // namespace Tessarin
