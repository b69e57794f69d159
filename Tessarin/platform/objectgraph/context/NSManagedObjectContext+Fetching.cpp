// Fetching: what the store finds, corrected by what is not saved yet.
#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/objectgraph/context/FetchRequestProblem.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/PrefetchingPrivate.h"
#include "Tessarin/platform/objectgraph/context/UnsavedRecordsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace Tessarin {
namespace {

using Objects = std::vector<Ref<NSManagedObject>>;

/// The order of a request: by its descriptors, then by key, what has no permanent one yet behind the rest in the order in which
/// it was made. What an object is sorted by is asked for once.
class Sorting {
public:
    explicit Sorting(std::span<Ref<NSSortDescriptor> const> descriptors) : descriptors_(descriptors) {}

    void sort(Objects& objects, Objects more) const {
        std::ranges::move(more, std::back_inserter(objects));
        auto all = keyed(objects);
        std::ranges::sort(all, [&](Keyed const& a, Keyed const& b) { return isBefore(a, b); });
        std::ranges::transform(all, objects.begin(), [](Keyed& each) { return std::move(each.object); });
    }

    /// Puts `more` into their places among objects that stand in order. Of those only the ones that are compared are asked.
    void merge(Objects& objects, Objects more) const {
        if (more.empty()) return;
        auto added = keyed(more);
        std::ranges::sort(added, [&](Keyed const& a, Keyed const& b) { return isBefore(a, b); });
        Objects merged;
        merged.reserve(objects.size() + added.size());
        auto rest = objects.begin();
        for (auto& each : added) {
            auto const place = std::partition_point(
                rest, objects.end(), [&](Ref<NSManagedObject> const& other) { return isBefore(keyed(other), each); });
            merged.insert(merged.end(), std::move_iterator(rest), std::move_iterator(place));
            merged.push_back(std::move(each.object));
            rest = place;
        }
        merged.insert(merged.end(), std::move_iterator(rest), std::move_iterator(objects.end()));
        objects = std::move(merged);
    }

private:
    struct Keyed {
        Ref<NSManagedObject> object;
        List keys;
    };
    Keyed keyed(Ref<NSManagedObject> const& object) const {
        Keyed result{object, {}};
        for (auto const& descriptor : descriptors_) result.keys.push_back(descriptor->keyPath().valueFrom(object));
        return result;
    }
    std::vector<Keyed> keyed(Objects const& objects) const {
        std::vector<Keyed> result;
        result.reserve(objects.size());
        for (auto const& object : objects) result.push_back(keyed(object));
        return result;
    }
    bool isBefore(Keyed const& a, Keyed const& b) const {
        for (std::size_t at = 0; at < descriptors_.size(); ++at)
            if (auto const order = descriptors_[at]->compareKeys(a.keys[at], b.keys[at]); order != 0) return order < 0;
        return isBeforeByKey(a.object->recordKey(), b.object->recordKey());
    }

    std::span<Ref<NSSortDescriptor> const> descriptors_;
};

class Fetch {
public:
    Fetch(ContextState& context, NSFetchRequest const& request, NSEntityDescription const& entity)
        : context_(context), request_(request), entity_(entity), reader_(context) {
        if (!request.includesPendingChanges()) return;
        unsaved_.emplace(context, reader_, request, entity);
        mustLookAtAll_ = unsaved_->turnsAll();
    }

    /// Hands the results on in runs; nothing on an error.
    Ref<NSError> run(FetchedObjectsTaker take) {
        StoreAnswer answer;
        if (auto error = askStore(answer)) return error;
        if (isUntouched() && answer.complete) {
            auto const total = answer.rows.size();
            Ref<NSError> error;
            objectsWithRows(context_, entity_, answer.rows, [&](std::span<Ref<NSManagedObject>> run) {
                if (!error) error = finish(run);
                if (!error) take(run, total);
            });
            return error;
        }
        auto objects = objectsOf(answer.rows);
        bool const isSorted = answer.complete && !mustLookAtAll_; // which the store does
        if (!isSorted) filter(objects);
        auto unsaved = hasUnsaved() ? fittingUnsaved() : Objects();
        Sorting const sorting(request_.sortDescriptors());
        isSorted ? sorting.merge(objects, std::move(unsaved)) : sorting.sort(objects, std::move(unsaved));
        cut(objects);
        if (auto error = finish(objects)) return error;
        take(objects, objects.size());
        return nullptr;
    }

    /// The results' keys, in their order; false when the store alone cannot say.
    bool run(std::vector<RecordKey>& keys, Ref<NSError>& error) {
        if (!isUntouched() || !store()) return false;
        auto query = this->query();
        query.wantsKeysOnly = true;
        StoreAnswer answer;
        error = store()->fetch(query, answer);
        if (!answer.complete) return false;
        keys = std::move(answer.keys);
        for (auto const& row : answer.rows) keys.push_back(row->key()); // of a store that gives rows anyway
        return true;
    }

    Ref<NSError> count(std::size_t& found) {
        if (!mustLookAtAll_ && store()) {
            auto query = this->query();
            std::vector<KeyRange> unsaved;
            if (hasUnsaved()) { // they are counted here, and all is cut at the end
                unsaved = unsaved_->stored();
                query.without = unsaved;
                query.limit = query.offset = 0;
            }
            bool isComplete = true;
            if (auto error = store()->count(query, found, isComplete)) return error;
            if (isComplete && !hasUnsaved()) return nullptr;
            if (isComplete) {
                found += fittingUnsaved().size();
                found -= std::min(found, request_.fetchOffset());
                if (request_.fetchLimit() != 0) found = std::min(found, request_.fetchLimit());
                return nullptr;
            }
        }
        return run([&](std::span<Ref<NSManagedObject>>, std::size_t total) { found = total; });
    }

    /// Whether the store alone can answer.
    bool isUntouched() const noexcept { return !hasUnsaved() && !mustLookAtAll_; }
    StoreQuery query() const {
        StoreQuery query;
        query.entity = &entity_;
        query.includesSubentities = request_.includesSubentities();
        query.predicate = request_.predicate().get();
        query.sortDescriptors = request_.sortDescriptors();
        query.limit = request_.fetchLimit();
        query.offset = request_.fetchOffset();
        return query;
    }
    NSPersistentStore* store() const noexcept { return reader_.store(); }

private:
    bool isWanted(NSEntityDescription const& entity) const {
        return request_.includesSubentities() ? entity.isKindOf(&entity_) : &entity == &entity_;
    }

    bool hasUnsaved() const noexcept { return unsaved_ && !unsaved_->empty(); }

    static Ref<NSError> noStore() { return storeError(StoreErrorCode::ContextWithoutStore, "There is no store to fetch from."); }

    Ref<NSError> askStore(StoreAnswer& answer) {
        if (!store()) return noStore();
        auto query = this->query();
        if (isUntouched()) return store()->fetch(query, answer);
        query.offset = 0;
        query.limit = 0;
        if (mustLookAtAll_) query.predicate = nullptr;
        if (mustLookAtAll_ || request_.fetchLimit() == 0) return askForRest(query, answer);
        // Records that the store counts may turn out to be gone or changed. That is seldom so for many of the first.
        auto const wanted = countUpToLast();
        for (std::size_t surplus = 16;; surplus *= 8) {
            answer = {};
            query.limit = wanted + std::min(surplus, unsaved_->count());
            if (auto error = store()->fetch(query, answer)) return error;
            auto const given = answer.rows.size();
            removeUnsaved(answer.rows);
            if (given < query.limit || answer.rows.size() >= wanted || surplus >= unsaved_->count()) return nullptr;
        }
    }

    Ref<NSError> askForRest(StoreQuery const& query, StoreAnswer& answer) {
        auto error = store()->fetch(query, answer);
        removeUnsaved(answer.rows);
        return error;
    }

    void removeUnsaved(std::vector<RowRef>& rows) {
        if (hasUnsaved()) unsaved_->removeFrom(rows);
    }

    Ref<NSError> finish(std::span<Ref<NSManagedObject> const> objects) {
        for (auto const& keyPath : request_.relationshipKeyPathsForPrefetching())
            if (auto error = prefetch(context_, entity_, objects, keyPath)) return error;
        if (!request_.returnsObjectsAsFaults())
            for (auto const& object : objects) GraphAccess::fire(*object);
        return nullptr;
    }

    Objects objectsOf(std::vector<RowRef>& rows) {
        Objects objects;
        objects.reserve(rows.size());
        objectsWithRows(context_, entity_, rows, [&](std::span<Ref<NSManagedObject>> run) {
            objects.insert(objects.end(), std::move_iterator(run.begin()), std::move_iterator(run.end()));
        });
        return objects;
    }

    Objects fittingUnsaved() {
        Objects objects;
        std::vector<RecordKey> unread;
        std::vector<RowRef> rows;
        KeySet seen; // sets may know a record by another key
        auto const add = [&](Ref<NSManagedObject> object) {
            if (!object->isDeleted() && seen.add(object->recordKey()) && isWanted(object->entity()) && fits(*object))
                objects.push_back(std::move(object));
        };
        for (auto const key : unsaved_->listsFirst() ? unsaved_->firstCandidates(countUpToLast()) : unsaved_->candidates()) {
            auto living = context_.link->find(key);
            if (living && (GraphAccess::state(*living).row || living->isInserted()))
                add(std::move(living));
            else
                unread.push_back(key);
        }
        reader_.rows(entity_, unread, [&](RowRef row) { rows.push_back(std::move(row)); });
        Objects read;
        objectsWithRows(context_, entity_, rows,
                        [&](std::span<Ref<NSManagedObject>> run) { read.insert(read.end(), run.begin(), run.end()); });
        for (auto& object : read) add(std::move(object));
        return objects;
    }

    /// How many records there are up to the last one that is wanted, for a request with a limit; never so many that more could
    /// not be added.
    std::size_t countUpToLast() const {
        static constexpr std::size_t most = SIZE_MAX / 4;
        return std::min(request_.fetchLimit(), most) + std::min(request_.fetchOffset(), most);
    }

    bool fits(NSManagedObject& object) {
        return !request_.predicate() || request_.predicate()->evaluateWithObject(Value(object.self<NSManagedObject>()));
    }

    void filter(Objects& objects) {
        std::erase_if(objects, [&](auto const& object) { return !fits(*object); });
    }

    void cut(Objects& objects) {
        auto const offset = std::min(request_.fetchOffset(), objects.size());
        objects.erase(objects.begin(), objects.begin() + static_cast<std::ptrdiff_t>(offset));
        if (request_.fetchLimit() != 0 && objects.size() > request_.fetchLimit()) objects.resize(request_.fetchLimit());
    }

    ContextState& context_;
    NSFetchRequest const& request_;
    NSEntityDescription const& entity_;
    RecordReader reader_;
    std::optional<UnsavedRecords> unsaved_; // absent when the request leaves them out
    bool mustLookAtAll_ = false;
};

NSEntityDescription const* entityOf(ContextState const& context, NSFetchRequest const& request, Ref<NSError>& error) {
    if (!context.link) {
        error = storeError(StoreErrorCode::ContextWithoutStore, "This context has neither a parent nor a coordinator.");
        return nullptr;
    }
    auto const* entity = context.coordinator->managedObjectModel()->entityNamed(request.entityName());
    if (!entity)
        error = storeError(StoreErrorCode::UnknownEntity,
                           "There is no entity named \"" + std::string{request.entityName()} + "\" in this model.");
    if (entity) error = problemWithFetchRequest(request, *entity);
    return error ? nullptr : entity;
}

/// What `work` returns, or the error that it throws.
Ref<NSError> caught(FunctionRef<Ref<NSError>()> work) {
    try {
        return work();
    } catch (ErrorException const& failure) {
        return failure.error();
    }
}

} // namespace

std::vector<Ref<NSManagedObject>> NSManagedObjectContext::executeFetchRequest(NSFetchRequest const& request,
                                                                              Ref<NSError>& error) {
    Objects objects;
    executeFetchRequest(request, error, [&](std::span<Ref<NSManagedObject>> run, std::size_t total) {
        objects.reserve(total);
        objects.insert(objects.end(), std::move_iterator(run.begin()), std::move_iterator(run.end()));
    });
    if (error) objects.clear();
    return objects;
}

void NSManagedObjectContext::executeFetchRequest(NSFetchRequest const& request, Ref<NSError>& error, FetchedObjectsTaker take) {
    error = nullptr;
    processChanges(*this, *state_);
    auto const* entity = entityOf(*state_, request, error);
    if (entity) error = caught([&] { return Fetch(*state_, request, *entity).run(take); });
}

FetchedObjects NSManagedObjectContext::fetchObjects(NSFetchRequest const& request, Ref<NSError>& error) {
    error = nullptr;
    processChanges(*this, *state_);
    auto const* entity = entityOf(*state_, request, error);
    if (!entity) return {};
    FetchedObjects list;
    error = caught([&] {
        Fetch fetch(*state_, request, *entity);
        Ref<NSError> failed;
        if (fetch.run(list.keys_, failed)) return failed;
        return fetch.run([&](std::span<Ref<NSManagedObject>> run, std::size_t total) {
            list.keys_.reserve(total);
            for (auto const& object : run) {
                if (object->recordKey() < 0) list.unsaved_.emplace_back(list.keys_.size(), object);
                list.keys_.push_back(object->recordKey());
            }
        });
    });
    if (error) return {};
    list.link_ = state_->link;
    list.entity_ = entity;
    list.batchSize_ = request.fetchBatchSize() != 0 ? request.fetchBatchSize() : std::max<std::size_t>(1, list.keys_.size());
    return list;
}

Ref<NSManagedObject> NSManagedObjectContext::loadedObject(NSEntityDescription const& entity, NSPredicate const* predicate) {
    if (!state_->link) return nullptr;
    auto const fits = [&](Ref<NSManagedObject> const& object) {
        return &object->entity() == &entity && !object->isFault() && (!predicate || predicate->evaluateWithObject(object));
    };
    auto const known = predicate ? objectsByEquality(*state_, *predicate, entity) : std::nullopt;
    auto const objects = known ? *known : registeredObjects(entity);
    auto const found = std::ranges::find_if(objects, fits);
    return found == objects.end() ? nullptr : *found;
}

std::int64_t NSManagedObjectContext::countForFetchRequest(NSFetchRequest const& request, Ref<NSError>& error) {
    error = nullptr;
    processChanges(*this, *state_);
    auto const* entity = entityOf(*state_, request, error);
    if (!entity) return NSNotFound;
    std::size_t found = 0;
    error = caught([&] { return Fetch(*state_, request, *entity).count(found); });
    return error ? NSNotFound : static_cast<std::int64_t>(found);
}

} // namespace Tessarin
