// Requests that change the store without objects, and how contexts learn of it.
#include "Tessarin/platform/objectgraph/context/FetchRequestProblem.h"
#include "Tessarin/platform/objectgraph/context/MergingPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/BatchChangePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/queues/Dispatch.h"

#include <map>

namespace Tessarin {
namespace {

using Coordinator = Ref<NSPersistentStoreCoordinator>;

[[noreturn]] void refuse(NSEntityDescription const& entity, std::string const& property, char const* reason) {
    throw ErrorException(storeError(StoreErrorCode::UnsupportedAttribute, entity.name() + "." + property + " " + reason));
}

NSPersistentStore& storeOf(Coordinator const& coordinator) {
    if (!coordinator || !coordinator->store())
        throw ErrorException(storeError(StoreErrorCode::ContextWithoutStore, "A batch request needs a context with a store."));
    return *coordinator->store();
}

NSEntityDescription const& entityNamed(Coordinator const& coordinator, std::string const& name) {
    if (auto const* entity = coordinator->managedObjectModel()->entityNamed(name)) return *entity;
    throw ErrorException(storeError(StoreErrorCode::UnknownEntity, "There is no entity named \"" + name + "\" in this model."));
}

BatchAssignment toOne(Coordinator const& coordinator, NSEntityDescription const& entity,
                      NSRelationshipDescription const& relationship, Value const& value) {
    auto const& name = relationship.name();
    if (relationship.isToMany() || relationship.isTransient())
        refuse(entity, name, "is a relationship that a batch update cannot set.");
    if (relationship.isReciprocal() && !relationship.inverseRelationship()->isToMany())
        refuse(entity, name, "is one-to-one: a batch update cannot keep up its other end.");
    if (value.isAbsent()) {
        if (auto error = relationship.validateCount(0)) throw ErrorException(error);
        return {.property = &relationship};
    }
    auto const key = recordKeyOf(value, coordinator->identities());
    if (key == 0) refuse(entity, name, "takes an identity or an object of this coordinator.");
    if (key < 0) throw ErrorException(missingDestination(relationship, key));
    return {.property = &relationship, .reference = key};
}

BatchAssignment assignment(Coordinator const& coordinator, NSEntityDescription const& entity, std::string const& name,
                           Value value) {
    auto const* property = entity.propertyNamed(name);
    if (!property) refuse(entity, name, "is no property of this entity.");
    NSAttributeDescription const* source = nullptr;
    if (auto const expression = value.objectAs<NSExpression>()) {
        if (expression->isConstant()) {
            value = expression->expressionValueWithObject({});
        } else {
            auto const& path = expression->keyPath().components();
            bool const isName =
                expression->expressionType() == NSExpressionType::KeyPath && !expression->operand() && path.size() == 1;
            auto const* from = isName ? entity.propertyNamed(path.front()) : nullptr;
            source = from ? from->asAttribute() : nullptr;
            if (!source || source->isTransient())
                refuse(entity, name, "takes constants and the names of stored attributes only.");
        }
    }
    auto const* attribute = property->asAttribute();
    if (!attribute) {
        if (source) refuse(entity, name, "takes an identity or an object.");
        return toOne(coordinator, entity, *property->asRelationship(), value);
    }
    CellType type{};
    if (attribute->isTransient() || attribute->isDerived() || !cellTypeOf(attribute->attributeType(), type))
        refuse(entity, name, "is not stored, or of a kind that cannot be.");
    if (source && source->attributeType() != attribute->attributeType())
        refuse(entity, name, "takes attributes of its own type only.");
    if (source) return {.property = attribute, .source = source};
    if (attribute->holdsKindOf(value) && !value.isAbsent()) value = attributeValue(attribute->attributeType(), std::move(value));
    if (auto error = valueProblem(entity, *attribute, value)) throw ErrorException(error);
    return {.property = attribute, .value = std::move(value)};
}

StoreQuery queryOf(Coordinator const& coordinator, NSFetchRequest const& request) {
    auto const& entity = entityNamed(coordinator, request.entityName());
    if (auto error = problemWithFetchRequest(request, entity)) throw ErrorException(error);
    return {.entity = &entity,
            .includesSubentities = request.includesSubentities(),
            .predicate = request.predicate().get(),
            .sortDescriptors = request.sortDescriptors(),
            .limit = request.fetchLimit(),
            .offset = request.fetchOffset()};
}

/// The keys of what a request finds in the store, for a store that cannot say it: in a context without unsaved changes.
std::vector<RecordKey> keysOf(Coordinator const& coordinator, NSFetchRequest const& request) {
    auto const context = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    context->setPersistentStoreCoordinator(coordinator);
    std::vector<RecordKey> keys;
    Ref<NSError> error;
    context->performBlockAndWait([&] {
        for (auto const& object : context->executeFetchRequest(request, error)) keys.push_back(object->recordKey());
    });
    if (error) throw ErrorException(error);
    return keys;
}

/// `change` on what the request means; once more with keys where the store cannot say that.
template <class Change>
void onTargets(Coordinator const& coordinator, NSFetchRequest const& request, bool namesRecords, BatchOutcome& outcome,
               Ref<ChangeOrigin const> origin, Change change) {
    BatchTarget target{.query = queryOf(coordinator, request),
                       .names = namesRecords ? BatchTarget::Names::Records : BatchTarget::Names::None,
                       .origin = std::move(origin)};
    if (auto error = change(target)) throw ErrorException(error);
    if (outcome.complete) return;
    target.keys = keysOf(coordinator, request);
    if (auto error = change(target)) throw ErrorException(error);
}

std::vector<BatchTarget> targetsOf(Coordinator const& coordinator, std::span<Ref<NSManagedObjectID> const> ids,
                                   Ref<ChangeOrigin const> const& origin) {
    std::map<NSEntityDescription const*, std::vector<RecordKey>> keys; // by root entity
    for (auto const& id : ids)
        if (id->isIn(coordinator->identities()) && id->recordKey() > 0)
            keys[id->entity().rootEntity()].push_back(id->recordKey());
    std::vector<BatchTarget> targets;
    for (auto& [root, some] : keys)
        targets.push_back({.query = {.entity = root, .sortDescriptors = {}}, .keys = std::move(some), .origin = origin});
    return targets;
}

template <class Result>
Ref<Result> resultOf(Coordinator const& coordinator, NSBatchRequestResultType type, BatchOutcome const& outcome) {
    std::vector<Ref<NSManagedObjectID>> ids;
    if (type == NSBatchRequestResultType::ObjectIDs)
        for (auto const& [entity, key] : outcome.records) ids.push_back(coordinator->identities().identity(*entity, key));
    auto const count = type == NSBatchRequestResultType::StatusOnly ? 0 : static_cast<std::int64_t>(outcome.count);
    return make<Result>(type, count, std::move(ids));
}

/// What remote changes are to the contexts of one coordinator: rows as they are now, and deletions.
Ref<ChangeSet const> changesNow(NSPersistentStoreCoordinator& coordinator, ObjectIDsByChange const& changes) {
    std::map<NSEntityDescription const*, std::vector<RecordKey>> keys; // by root entity
    std::vector<RecordChange> found;
    for (auto const& [kind, ids] : changes)
        for (auto const& id : ids) {
            if (!id->isIn(coordinator.identities()) || id->recordKey() <= 0) continue;
            if (kind == NSDeletedObjectsKey) {
                coordinator.space()->cache().remove(id->recordKey()); // which somebody may still hold
                found.push_back({.kind = RecordChange::Kind::Delete,
                                 .key = id->recordKey(),
                                 .entity = &id->entity(),
                                 .before = {},
                                 .after = {},
                                 .relationships = {}});
            } else {
                keys[id->entity().rootEntity()].push_back(id->recordKey());
            }
        }
    coordinator.space()->cache().endCommit(); // no reader that began before brings a deleted record's row any more
    for (auto const& [root, some] : keys) {
        auto const note = [&](RowRef row) {
            auto const* entity = &row->entity();
            found.push_back({.kind = RecordChange::Kind::Update,
                             .key = row->key(),
                             .entity = entity,
                             .before = {},
                             .after = std::move(row),
                             .relationships = {}});
        };
        if (auto error = coordinator.store()->rows(*root, some, note)) throw ErrorException(error);
    }
    return std::make_shared<ChangeSet const>(coordinator.space(), std::move(found));
}

} // namespace

Ref<NSBatchUpdateResult> NSManagedObjectContext::executeRequest(NSBatchUpdateRequest const& request, Ref<NSError>& error) {
    error = nullptr;
    try {
        auto const& coordinator = state_->coordinator;
        auto& store = storeOf(coordinator);
        auto const& entity = entityNamed(coordinator, request.entityName());
        std::vector<BatchAssignment> assignments;
        for (auto const& [name, value] : request.propertiesToUpdate())
            assignments.push_back(assignment(coordinator, entity, name, value));
        BatchOutcome outcome;
        auto const meant = make<NSFetchRequest>(request.entityName());
        meant->setPredicate(request.predicate());
        meant->setIncludesSubentities(request.includesSubentities());
        if (!assignments.empty())
            onTargets(coordinator, *meant, request.resultType() == NSBatchRequestResultType::ObjectIDs, outcome,
                      originOf(*state_),
                      [&](BatchTarget const& target) { return store.updateInBatch(target, assignments, outcome); });
        coordinator->space()->commits().noteGap();
        return resultOf<NSBatchUpdateResult>(coordinator, request.resultType(), outcome);
    } catch (ErrorException const& failure) {
        error = failure.error();
        return nullptr;
    }
}

Ref<NSBatchDeleteResult> NSManagedObjectContext::executeRequest(NSBatchDeleteRequest const& request, Ref<NSError>& error) {
    error = nullptr;
    try {
        auto const& coordinator = state_->coordinator;
        auto& store = storeOf(coordinator);
        BatchOutcome outcome;
        if (request.fetchRequest())
            onTargets(coordinator, *request.fetchRequest(), request.resultType() == NSBatchRequestResultType::ObjectIDs, outcome,
                      originOf(*state_), [&](BatchTarget const& target) {
                          return store.deleteInBatch({&target, 1}, outcome);
                      });
        else if (auto problem = store.deleteInBatch(targetsOf(coordinator, request.objectIDs(), originOf(*state_)), outcome))
            throw ErrorException(problem);
        coordinator->space()->commits().noteGap();
        return resultOf<NSBatchDeleteResult>(coordinator, request.resultType(), outcome);
    } catch (ErrorException const& failure) {
        error = failure.error();
        return nullptr;
    }
}

void NSManagedObjectContext::mergeChangesFromRemoteContextSave(ObjectIDsByChange const& changes,
                                                               std::span<Ref<NSManagedObjectContext> const> contexts) {
    std::map<Coordinator, Ref<ChangeSet const>> sets;
    for (auto const& context : contexts) {
        auto const& coordinator = context->state_->coordinator;
        if (!coordinator || !coordinator->store()) continue;
        auto& set = sets[coordinator];
        if (!set) {
            coordinator->space()->commits().noteGap();
            set = changesNow(*coordinator, changes);
        }
        if (queueIsHeld(context->state_->queue)) {
            applyReceived(*context->state_);
            mergeCorrections(*context->state_, set);
            continue;
        }
        context->performBlock([context, set = set] { mergeCorrections(*context->state_, set); });
    }
}

} // namespace Tessarin
