#include "Tessarin/platform/objectgraph/persistence/InMemoryStore.h"

#include "Tessarin/platform/foundation/NSUUID.h"
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/RelationshipStorage.h"
#include "Tessarin/platform/objectgraph/persistence/RowBuilder.h"
#include "Tessarin/platform/objectgraph/persistence/StoreErrors.h"

#include <algorithm>
#include <set>

namespace Tessarin {
namespace {

using Kind = RecordChange::Kind;

bool belongsTo(Row const& row, StoreQuery const& query) {
    return &row.entity() == query.entity || (query.includesSubentities && row.entity().isKindOf(query.entity));
}

/// The values that must be unique together; absent when one of them is.
std::optional<List> valuesOf(Row const& row, std::span<NSPropertyDescription const* const> properties) {
    List values;
    for (auto const* property : properties) {
        auto const cell = row.layout().cellOf(property->index());
        if (cell == RowLayout::noCell || !row.isPresent(static_cast<std::size_t>(cell))) return {};
        auto const value = row.value(static_cast<std::size_t>(cell));
        values.push_back(property->asAttribute() ? value : Value(row.reference(static_cast<std::size_t>(cell))));
    }
    return values;
}

NSRelationshipDescription const* manySideOf(RowLayout::Cell const& cell) {
    auto const* relationship = cell.property->asRelationship();
    if (!relationship || !relationship->isReciprocal() || !relationship->inverseRelationship()->isToMany()) return nullptr;
    return relationship->inverseRelationship();
}

NSRelationshipDescription const* otherSideOf(NSRelationshipDescription const& relationship) {
    return relationship.isReciprocal() && relationship.inverseRelationship() != &relationship ? relationship.inverseRelationship()
                                                                                              : nullptr;
}

} // namespace

Ref<InMemoryStore> InMemoryStore::open(NSURL const& url, Ref<RowSpace> space) {
    return make<InMemoryStore>(url, std::move(space));
}

void InMemoryStore::init(NSURL url, Ref<RowSpace> space) {
    url_ = std::move(url);
    space_ = std::move(space);
    identifier_ = NSUUID::UUID().UUIDString();
    Dictionary hashes;
    for (auto const& [name, hash] : space_->model().entityVersionHashesByName()) hashes.set(name, hash);
    metadata_ = {{"NSStoreType", type()}, {"NSStoreUUID", identifier_}, {"NSStoreModelVersionHashes", std::move(hashes)}};
}

std::string const& InMemoryStore::type() const {
    static std::string const name = "InMemory";
    return name;
}

Dictionary InMemoryStore::metadata() const {
    std::lock_guard const hold(mutex_);
    return metadata_;
}

void InMemoryStore::setMetadata(Dictionary metadata) {
    std::lock_guard const hold(mutex_);
    std::swap(metadata_, metadata);
}

Ref<NSError> InMemoryStore::save(std::span<Ref<ChangeSet const> const> sets, ConflictResolver resolve, SaveOutcome& outcome) {
    std::lock_guard const saving(saving_);
    outcome = {};
    auto const stored = [&](NSEntityDescription const& entity, RecordKey key) {
        std::lock_guard const hold(mutex_); // but not while conflicts are resolved: who does that may read
        return row(entity, key);
    };
    if (auto refusal = reconcile(sets, stored, resolve, outcome)) return refusal;
    if (!outcome.sets.empty()) sets = outcome.sets;
    std::lock_guard const hold(mutex_);
    if (auto error = conflictIn(sets)) {
        outcome = {};
        return error;
    }
    for (auto const& set : sets) {
        for (auto const& change : set->changes()) apply(change);
        for (auto const& change : set->changes()) applyLinks(change);
    }
    cutDangling(sets, outcome);
    return nullptr;
}

RowRef InMemoryStore::row(NSEntityDescription const& entity, RecordKey key) const {
    auto const records = records_.find(entity.rootEntity());
    if (records == records_.end()) return {};
    auto const found = records->second.find(key);
    return found == records->second.end() ? RowRef() : found->second;
}

/// What the records would be, looked at before anything is changed.
Ref<NSError> InMemoryStore::conflictIn(std::span<Ref<ChangeSet const> const> sets) const {
    for (auto const& entity : space_->model().entities())
        for (auto const& constraint : entity->uniquenessConstraints()) {
            Records future;
            if (auto const found = records_.find(entity->rootEntity()); found != records_.end()) future = found->second;
            bool isTouched = false;
            for (auto const& set : sets)
                for (auto const& change : set->changesOf(*entity->rootEntity())) {
                    if (!change.changesRow()) continue;
                    isTouched = true;
                    if (change.kind == Kind::Delete)
                        future.erase(change.key);
                    else
                        future[change.key] = change.after;
                }
            if (!isTouched) continue;
            std::unordered_map<Value, RecordKey> holders;
            for (auto const& [key, row] : future) {
                if (!row->entity().isKindOf(entity.get())) continue;
                auto values = valuesOf(*row, constraint);
                if (!values || holders.emplace(std::move(*values), key).second) continue;
                List names;
                for (auto const* property : constraint) names.push_back(property->name());
                return storeError(StoreErrorCode::ConstraintConflict,
                                  entity->name() + ": another record has the same " + Value(names).description(),
                                  {{"entity", entity->name()}, {"attributes", Value(std::move(names))}});
            }
        }
    return nullptr;
}

void InMemoryStore::apply(RecordChange const& change) {
    if (change.kind == Kind::Delete) return remove(change);
    if (change.after == change.before) return;
    auto& records = records_[change.entity->rootEntity()];
    if (change.kind == Kind::Update && !records.contains(change.key)) return; // made on a record that an ancestor never saved
    replace(records, change.key, change.after);
}

void InMemoryStore::replace(Records& records, RecordKey key, RowRef row) {
    auto& kept = records[key];
    auto const cells = row->layout().cells();
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        auto const* many = manySideOf(cells[cell]);
        auto const before = kept ? kept->reference(cell) : 0;
        if (!many || before == row->reference(cell)) continue;
        if (before != 0) std::erase(links_[many][before], key);
        if (row->isPresent(cell)) links_[many][row->reference(cell)].push_back(key);
    }
    space_->cache().add(row);
    kept = std::move(row);
}

void InMemoryStore::remove(RecordChange const& change) {
    auto& records = records_[change.entity->rootEntity()];
    if (auto const found = records.find(change.key); found != records.end()) {
        auto const& row = *found->second;
        for (std::size_t cell = 0; cell < row.layout().cells().size(); ++cell)
            if (auto const* many = manySideOf(row.layout().cells()[cell]); many && row.isPresent(cell))
                std::erase(links_[many][row.reference(cell)], change.key);
        records.erase(found);
    }
    space_->cache().remove(change.key);
}

void InMemoryStore::applyLinks(RecordChange const& change) {
    if (change.kind == Kind::Delete || !records_[change.entity->rootEntity()].contains(change.key)) return;
    auto const add = [&](NSRelationshipDescription const* relationship, RecordKey owner, RecordKey member) {
        auto& members = links_[relationship][owner];
        if (std::ranges::find(members, member) == members.end()) members.push_back(member);
    };
    for (auto const& changed : change.relationships) {
        auto const& relationship = *changed.relationship;
        if (relationship.isTransient()) continue;
        if (!isKeptInInverse(relationship) && writesItsLinks(relationship)) {
            auto const* other = otherSideOf(relationship);
            for (auto const member : changed.removed) {
                std::erase(links_[&relationship][change.key], member);
                if (other) std::erase(links_[other][member], change.key);
            }
            for (auto const member : changed.added) {
                add(&relationship, change.key, member);
                if (other) add(other, member, change.key);
            }
        }
        if (!changed.order || !relationship.isOrdered()) continue;
        auto& members = links_[&relationship][change.key];
        std::unordered_map<RecordKey, std::size_t> places;
        for (auto const member : *changed.order) places.emplace(member, places.size());
        auto const place = [&](RecordKey member) { return places.contains(member) ? places[member] : places.size(); };
        std::ranges::stable_sort(members, {}, place);
    }
}

/// No link leads to a record that does not exist: neither to one that was deleted, nor from what was just written.
void InMemoryStore::cutDangling(std::span<Ref<ChangeSet const> const> sets, SaveOutcome& outcome) {
    std::map<NSEntityDescription const*, std::set<RecordKey>> missing; // by root entity
    auto const look = [&](NSEntityDescription const& entity, RecordKey key) {
        if (key != 0 && !row(entity, key)) missing[entity.rootEntity()].insert(key);
    };
    for (auto const& set : sets)
        for (auto const& change : set->changes()) {
            look(*change.entity, change.key);
            for (auto const& each : change.relationships)
                for (auto const member : each.added) look(*each.relationship->destinationEntity(), member);
            if (!change.after || change.after == change.before) continue;
            auto const cells = change.after->layout().cells();
            for (std::size_t cell = 0; cell < cells.size(); ++cell)
                if (auto const* relationship = cells[cell].property->asRelationship())
                    look(*relationship->destinationEntity(), change.after->reference(cell));
        }
    if (missing.empty()) return;
    auto const isMissing = [&](NSEntityDescription const& entity, RecordKey key) {
        auto const found = missing.find(entity.rootEntity());
        return found != missing.end() && found->second.contains(key);
    };
    RowBuilder builder;
    for (auto& [root, records] : records_)
        for (auto const& [key, current] : records) {
            auto const kept = current; // which `replace` exchanges
            auto const cells = kept->layout().cells();
            bool isCut = false;
            for (std::size_t cell = 0; cell < cells.size(); ++cell) {
                auto const* relationship = cells[cell].property->asRelationship();
                if (!relationship || !isMissing(*relationship->destinationEntity(), kept->reference(cell))) continue;
                if (!std::exchange(isCut, true)) builder.begin(*kept, kept->version() + 1);
                builder.setAbsent(cell);
            }
            if (!isCut) continue;
            auto made = builder.finish();
            replace(records, key, made);
            std::erase_if(outcome.corrected, [&, cut = key](RecordChange const& change) { return change.key == cut; });
            outcome.corrected.push_back({.kind = Kind::Update, .key = key, .entity = &made->entity(), .before = {}, .after = made, .relationships = {}});
        }
    for (auto& [relationship, links] : links_) {
        std::erase_if(links, [&](auto const& entry) { return isMissing(*relationship->entity(), entry.first); });
        for (auto& [owner, members] : links)
            std::erase_if(members, [&](RecordKey key) { return isMissing(*relationship->destinationEntity(), key); });
    }
}

Ref<NSError> InMemoryStore::fetch(StoreQuery const& query, StoreAnswer& answer) {
    std::lock_guard const hold(mutex_);
    for (auto const& [key, row] : records_[query.entity->rootEntity()])
        if (belongsTo(*row, query)) answer.rows.push_back(row);
    answer.complete = !query.predicate && query.sortDescriptors.empty() && query.limit == 0 && query.offset == 0;
    return nullptr;
}

Ref<NSError> InMemoryStore::count(StoreQuery const& query, std::size_t& count, bool& complete) {
    std::lock_guard const hold(mutex_);
    complete = !query.predicate && query.limit == 0 && query.offset == 0;
    auto const& records = records_[query.entity->rootEntity()];
    count = static_cast<std::size_t>(
        std::ranges::count_if(records, [&](auto const& entry) { return belongsTo(*entry.second, query); }));
    return nullptr;
}

Ref<NSError> InMemoryStore::rows(NSEntityDescription const& rootEntity, std::span<RecordKey const> keys,
                                 FunctionRef<void(RowRef)> each) {
    std::vector<RowRef> found; // handed out after the lock is released
    {
        std::lock_guard const hold(mutex_);
        auto const& records = records_[&rootEntity];
        for (auto const key : keys)
            if (auto const at = records.find(key); at != records.end()) found.push_back(at->second);
    }
    for (auto& row : found) each(std::move(row));
    return nullptr;
}

Ref<NSError> InMemoryStore::members(NSRelationshipDescription const& relationship, std::span<RecordKey const> owners,
                                    FunctionRef<void(RecordKey owner, RecordKey member)> each) {
    std::vector<std::pair<RecordKey, RecordKey>> found;
    {
        std::lock_guard const hold(mutex_);
        auto const& links = links_[&relationship];
        for (auto const owner : owners)
            if (auto const at = links.find(owner); at != links.end())
                for (auto const member : at->second) found.emplace_back(owner, member);
    }
    for (auto const& [owner, member] : found) each(owner, member);
    return nullptr;
}

RecordKey InMemoryStore::reserveKeys(std::size_t count, Ref<NSError>& error) {
    static_cast<void>(error);
    std::lock_guard const hold(mutex_);
    return std::exchange(next_, next_ + static_cast<RecordKey>(std::max<std::size_t>(count, 1)));
}

} // namespace Tessarin
