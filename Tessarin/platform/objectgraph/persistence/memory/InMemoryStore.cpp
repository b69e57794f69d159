#include "Tessarin/platform/objectgraph/persistence/memory/InMemoryStorePrivate.h"

#include "Tessarin/platform/foundation/values/NSUUID.h"
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/memory/InMemoryLinksPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/CutMembersPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/SearchStatisticsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/UniqueValuesPrivate.h"

#include <algorithm>
#include <set>

namespace Tessarin {
namespace {

using Kind = RecordChange::Kind;

bool belongsTo(Row const& row, StoreQuery const& query) {
    return &row.entity() == query.entity || (query.includesSubentities && row.entity().isKindOf(query.entity));
}

} // namespace

InMemoryStore::InMemoryStore() = default;
InMemoryStore::~InMemoryStore() = default;

Ref<InMemoryStore> InMemoryStore::open(NSURL const& url, Ref<RowSpace> space) {
    return make<InMemoryStore>(url, std::move(space));
}

void InMemoryStore::init(NSURL url, Ref<RowSpace> space) {
    url_ = std::move(url);
    space_ = std::move(space);
    links_ = std::make_unique<InMemoryLinks>(space_->model());
    unique_ = std::make_unique<UniqueValues>(space_->constraints());
    identifier_ = NSUUID::UUID().UUIDString();
    Dictionary hashes;
    for (auto const& [name, hash] : space_->model().entityVersionHashesByName()) hashes.set(name, hash);
    metadata_ = {{"NSStoreType", type()}, {"NSStoreUUID", identifier_}, {"NSStoreModelVersionHashes", std::move(hashes)}};
}

std::string const& InMemoryStore::type() const {
    static std::string const name = "InMemory";
    return name;
}

/// What it held is let go of.
void InMemoryStore::close() {
    std::lock_guard const saving(saving_);
    std::lock_guard const hold(mutex_);
    isClosed_ = true;
    records_.clear();
    links_ = std::make_unique<InMemoryLinks>(space_->model());
    unique_ = std::make_unique<UniqueValues>(space_->constraints());
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
    if (isClosed_) return std::ranges::all_of(sets, [](auto const& set) { return set->empty(); }) ? nullptr : closedProblem();
    auto const stored = [&](NSEntityDescription const& entity, RecordKey key) {
        std::lock_guard const hold(mutex_); // but not while conflicts are resolved: who does that may read
        return row(entity, key);
    };
    if (auto refusal = reconcile(sets, stored, resolve, outcome, SetTaker::Store)) return refusal;
    if (!outcome.sets.empty()) sets = outcome.sets;
    std::lock_guard const hold(mutex_);
    if (auto error = conflictIn(sets)) {
        outcome = {};
        return error;
    }
    for (auto const& set : sets) {
        for (auto const& change : set->changes()) apply(change);
        for (auto const& change : set->changes())
            if (row(*change.entity, change.key)) links_->apply(change);
    }
    cutDangling(sets, outcome);
    return nullptr;
}

Ref<NSError> InMemoryStore::findRefused(std::span<Ref<ChangeSet const> const> sets, ConflictResolver,
                                        std::vector<RefusedSet>& refused) {
    std::lock_guard const hold(mutex_);
    if (auto error = closedProblem()) return error;
    auto const stored = [&](NSEntityDescription const& entity, RecordKey key) { return row(entity, key); };
    UniqueTrial trial(*unique_, stored);
    return findRefusedSets(
        sets, [&](Ref<ChangeSet const> const& set) { return trial.add(*set); }, refused);
}

RowRef InMemoryStore::row(NSEntityDescription const& entity, RecordKey key) const {
    auto const records = records_.find(entity.rootEntity());
    if (records == records_.end()) return {};
    auto const found = records->second.find(key);
    return found == records->second.end() ? RowRef() : found->second;
}

Ref<NSError> InMemoryStore::conflictIn(std::span<Ref<ChangeSet const> const> sets) const {
    auto const stored = [&](NSEntityDescription const& entity, RecordKey key) { return row(entity, key); };
    UniqueTrial trial(*unique_, stored);
    for (auto const& set : sets)
        if (auto error = trial.add(*set)) return error;
    return nullptr;
}

void InMemoryStore::apply(RecordChange const& change) {
    if (change.kind == Kind::Delete) return remove(change);
    if (change.after == change.before) return;
    auto& records = records_[change.entity->rootEntity()];
    bool const isBack = change.kind == Kind::Insert && change.after->version() > Row::firstVersion;
    if (isBack)
        links_->forget(*change.entity->rootEntity(), change.key, [](RecordKey, auto const&) {}); // those that went with it
    if (change.kind == Kind::Update && !records.contains(change.key)) return; // made on a record that an ancestor never saved
    replace(records, change.key, change.after);
}

void InMemoryStore::replace(Records& records, RecordKey key, RowRef row) {
    auto& kept = records[key];
    links_->exchange(key, kept.get(), row.get());
    unique_->exchange(key, kept.get(), row.get());
    space_->cache().add(row);
    kept = std::move(row);
}

void InMemoryStore::remove(RecordChange const& change) {
    auto& records = records_[change.entity->rootEntity()];
    if (auto const found = records.find(change.key); found != records.end()) {
        links_->exchange(change.key, found->second.get(), nullptr);
        unique_->exchange(change.key, found->second.get(), nullptr);
        records.erase(found);
    }
    space_->cache().remove(change.key);
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
    std::map<RecordKey, std::vector<NSRelationshipDescription const*>> cuts; // by record: the to-ones that lead nowhere
    for (auto const& [root, keys] : missing)
        for (auto const key : keys)
            links_->forget(*root, key,
                           [&](RecordKey owner, NSRelationshipDescription const& toOne) { cuts[owner].push_back(&toOne); });
    RowBuilder builder;
    for (auto const& [key, relationships] : cuts) {
        auto& records = records_[relationships.front()->entity()->rootEntity()];
        auto const kept = records.at(key); // which `replace` exchanges
        builder.begin(*kept, kept->version() + 1);
        for (auto const* relationship : relationships)
            builder.setAbsent(static_cast<std::size_t>(kept->layout().cellOf(relationship->index())));
        auto made = builder.finish();
        replace(records, key, made);
        std::erase_if(outcome.corrected, [&, cut = key](RecordChange const& change) { return change.key == cut; });
        outcome.corrected.push_back(
            {.kind = Kind::Update, .key = key, .entity = &made->entity(), .before = {}, .after = made, .relationships = {}});
    }
    auto const isMissing = [&](NSEntityDescription const& entity, RecordKey key) {
        auto const found = missing.find(entity.rootEntity());
        return found != missing.end() && found->second.contains(key);
    };
    if (!missing.empty()) addCutMembers(sets, isMissing, outcome);
}

Ref<NSError> InMemoryStore::findHolders(UniqueConstraint const& constraint, std::span<RowRef const> rows,
                                        std::vector<RecordKey>& holders) {
    std::lock_guard const hold(mutex_);
    if (auto error = closedProblem()) return error;
    for (auto const& row : rows) holders.push_back(unique_->holder(constraint, *constraint.valuesOf(*row)));
    return nullptr;
}

Ref<NSError> InMemoryStore::fetch(StoreQuery const& query, StoreAnswer& answer) {
    std::lock_guard const hold(mutex_);
    if (auto error = closedProblem()) return error;
    for (auto const& [key, row] : records_[query.entity->rootEntity()])
        if (belongsTo(*row, query)) answer.rows.push_back(row);
    answer.complete = !query.predicate && query.sortDescriptors.empty() && query.limit == 0 && query.offset == 0;
    return nullptr;
}

Ref<NSError> InMemoryStore::count(StoreQuery const& query, std::size_t& count, bool& complete) {
    std::lock_guard const hold(mutex_);
    if (auto error = closedProblem()) return error;
    complete = !query.predicate && query.limit == 0 && query.offset == 0;
    auto const& records = records_[query.entity->rootEntity()];
    count = static_cast<std::size_t>(
        std::ranges::count_if(records, [&](auto const& entry) { return belongsTo(*entry.second, query); }));
    for (auto const& [first, last] : query.without)
        for (auto at = records.lower_bound(first); at != records.end() && at->first <= last; ++at)
            if (belongsTo(*at->second, query)) --count;
    return nullptr;
}

Ref<NSError> InMemoryStore::searchStatistics(RankedSearch const& search, SearchStatistics& statistics) {
    std::lock_guard const hold(mutex_);
    if (auto error = closedProblem()) return error;
    statistics = {};
    addStatistics({}, search, statistics);
    for (auto const& [key, row] : records_[search.entity->rootEntity()]) addStatistics({&row, 1}, search, statistics);
    return nullptr;
}

Ref<NSError> InMemoryStore::rows(NSEntityDescription const& rootEntity, std::span<RecordKey const> keys,
                                 FunctionRef<void(RowRef)> each) {
    std::vector<RowRef> found; // handed out after the lock is released
    {
        std::lock_guard const hold(mutex_);
        if (auto error = closedProblem()) return error;
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
        if (auto error = closedProblem()) return error;
        for (auto const owner : owners)
            for (auto const member : links_->members(relationship, owner)) found.emplace_back(owner, member);
    }
    for (auto const& [owner, member] : found) each(owner, member);
    return nullptr;
}

RecordKey InMemoryStore::reserveKeys(std::size_t count, Ref<NSError>& error) {
    std::lock_guard const hold(mutex_);
    error = closedProblem();
    if (error) return 0;
    return std::exchange(next_, next_ + static_cast<RecordKey>(std::max<std::size_t>(count, 1)));
}

} // namespace Tessarin
