// Fetching: what the store finds, corrected by what is not saved yet.
#include "Tessarin/platform/foundation/NSPredicate.h"
#include "Tessarin/platform/foundation/NSSortDescriptor.h"
#include "Tessarin/platform/objectgraph/context/FetchRequestProblem.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/PrefetchingPrivate.h"
#include "Tessarin/platform/objectgraph/context/UnsavedRecordsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/StoreErrors.h"

#include <algorithm>
#include <optional>

namespace Tessarin {
namespace {

using Objects = std::vector<Ref<NSManagedObject>>;

class Fetch {
public:
    Fetch(ContextState& context, NSFetchRequest const& request, NSEntityDescription const& entity)
        : context_(context), request_(request), entity_(entity), reader_(context) {
        if (!request.includesPendingChanges()) return;
        unsaved_.emplace(context, reader_, entity, request.includesSubentities());
        mustLookAtAll_ = (unsaved_->hasOthers() || !unsaved_->empty()) && asksOtherRecords();
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
        if (hasUnsaved()) addUnsaved(objects);
        if (!answer.complete || mustLookAtAll_) filter(objects);
        sort(objects);
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

    /// Whether the answer for one record depends on others, so that unsaved changes of those may turn it.
    bool asksOtherRecords() const {
        auto const leavesRecord = [&](std::string const& keyPath) {
            auto const* property = entity_.propertyNamed(keyPath.substr(0, keyPath.find('.')));
            return property && property->asRelationship();
        };
        if (auto const& predicate = request_.predicate(); predicate && std::ranges::any_of(predicate->keyPaths(), leavesRecord)) return true;
        return std::ranges::any_of(request_.sortDescriptors(), [&](auto const& sort) { return leavesRecord(std::string{sort->key()}); });
    }

    static Ref<NSError> noStore() { return storeError(StoreErrorCode::ContextWithoutStore, "There is no store to fetch from."); }

    Ref<NSError> askStore(StoreAnswer& answer) {
        if (!store()) return noStore();
        auto query = this->query();
        if (mustLookAtAll_) query.predicate = nullptr;
        if (!isUntouched()) {
            // Records that the store counts may turn out to be gone or changed: as many more are needed.
            query.limit = query.limit == 0 || mustLookAtAll_ ? 0 : query.limit + query.offset + unsaved_->count();
            query.offset = 0;
        }
        return store()->fetch(query, answer);
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
        if (hasUnsaved()) std::erase_if(rows, [&](RowRef const& row) { return unsaved_->contains(row->key()); });
        objectsWithRows(context_, entity_, rows, [&](std::span<Ref<NSManagedObject>> run) {
            objects.insert(objects.end(), std::move_iterator(run.begin()), std::move_iterator(run.end()));
        });
        return objects;
    }

    void addUnsaved(Objects& objects) {
        std::vector<RecordKey> unread;
        auto const add = [&](Ref<NSManagedObject> object) {
            if (!object->isDeleted() && isWanted(object->entity()) && fits(*object)) objects.push_back(std::move(object));
        };
        for (auto const key : unsaved_->candidates(request_.predicate().get())) {
            auto living = context_.link->find(key);
            if (living && (GraphAccess::state(*living).row || living->isInserted()))
                add(std::move(living));
            else
                unread.push_back(key);
        }
        reader_.rows(entity_, unread, [&](RowRef row) { add(objectWithRow(context_, std::move(row), {})); });
        if (request_.sortDescriptors().empty()) // as the store gives them: by key
            std::ranges::sort(objects, {}, [](auto const& object) { return static_cast<std::uint64_t>(object->recordKey()); });
    }

    bool fits(NSManagedObject& object) {
        return !request_.predicate() || request_.predicate()->evaluateWithObject(Value(object.self<NSManagedObject>()));
    }

    void filter(Objects& objects) {
        std::erase_if(objects, [&](auto const& object) { return !fits(*object); });
    }

    void sort(Objects& objects) {
        auto const& descriptors = request_.sortDescriptors();
        if (descriptors.empty()) return;
        std::ranges::stable_sort(objects, [&](auto const& a, auto const& b) {
            for (auto const& descriptor : descriptors)
                if (auto const order = descriptor->compareObjects(Value(a), Value(b)); order != 0) return order < 0;
            return static_cast<std::uint64_t>(a->recordKey()) < static_cast<std::uint64_t>(b->recordKey());
        });
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
    if (!entity) error = storeError(StoreErrorCode::UnknownEntity, "There is no entity named \"" + std::string{request.entityName()} + "\" in this model.");
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

std::vector<Ref<NSManagedObject>> NSManagedObjectContext::executeFetchRequest(NSFetchRequest const& request, Ref<NSError>& error) {
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
    processPendingChanges();
    auto const* entity = entityOf(*state_, request, error);
    if (entity) error = caught([&] { return Fetch(*state_, request, *entity).run(take); });
}

FetchedObjects NSManagedObjectContext::fetchObjects(NSFetchRequest const& request, Ref<NSError>& error) {
    error = nullptr;
    processPendingChanges();
    auto const* entity = entityOf(*state_, request, error);
    if (!entity) return {};
    FetchedObjects list;
    if (Fetch fetch(*state_, request, *entity); !fetch.run(list.keys_, error))
        error = caught([&] { return fetch.run([&](std::span<Ref<NSManagedObject>> run, std::size_t total) {
            list.keys_.reserve(total);
            for (auto const& object : run) {
                if (object->recordKey() < 0) list.unsaved_.emplace_back(list.keys_.size(), object);
                list.keys_.push_back(object->recordKey());
            }
        }); });
    if (error) return {};
    list.link_ = state_->link;
    list.entity_ = entity;
    list.batchSize_ = request.fetchBatchSize() != 0 ? request.fetchBatchSize() : std::max<std::size_t>(1, list.keys_.size());
    return list;
}

std::int64_t NSManagedObjectContext::countForFetchRequest(NSFetchRequest const& request, Ref<NSError>& error) {
    error = nullptr;
    processPendingChanges();
    auto const* entity = entityOf(*state_, request, error);
    if (!entity) return NSNotFound;
    Fetch fetch(*state_, request, *entity);
    if (fetch.isUntouched() && fetch.store()) {
        std::size_t count = 0;
        bool isComplete = true;
        error = fetch.store()->count(fetch.query(), count, isComplete);
        if (error) return NSNotFound;
        if (isComplete) return static_cast<std::int64_t>(count);
    }
    std::size_t found = 0;
    error = caught([&] { return fetch.run([&](std::span<Ref<NSManagedObject>>, std::size_t total) { found = total; }); });
    return error ? NSNotFound : static_cast<std::int64_t>(found);
}

} // namespace Tessarin
