#include "Tessarin/platform/objectgraph/context/PrefetchingPrivate.h"

#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <unordered_set>

namespace Tessarin {
namespace {

using Objects = std::vector<Ref<NSManagedObject>>;

/// Reads the rows of those that have none, a batch at a time.
void fill(ContextState& context, Objects const& objects) {
    for (auto const& object : objects)
        if (auto const& state = GraphAccess::state(*object); !state.row && state.has(ObjectState::Fault))
            fillFault(context, *object);
}

/// Reads a to-many of all the owners with one question, then gives each its members.
void loadMembers(ContextState& context, std::span<Ref<NSManagedObject> const> owners,
                 NSRelationshipDescription const& relationship) {
    std::vector<RecordKey> unread;
    for (auto const& owner : owners)
        if (!hasLoadedMembers(*owner, relationship)) unread.push_back(owner->recordKey());
    MembersByOwner members;
    RecordReader const reader(context);
    reader.storedMembers(relationship, unread, members);
    for (auto const& owner : owners)
        if (!hasLoadedMembers(*owner, relationship))
            setLoadedMembers(
                *owner, relationship,
                reader.withChanges(relationship, owner->entity(), owner->recordKey(), std::move(members[owner->recordKey()])));
}

Objects follow(ContextState& context, std::span<Ref<NSManagedObject> const> objects,
               NSRelationshipDescription const& relationship) {
    if (relationship.isToMany()) loadMembers(context, objects, relationship);
    std::unordered_set<RecordKey> seen;
    std::vector<RecordKey> keys;
    auto const add = [&](RecordKey key) {
        if (key != 0 && seen.insert(key).second) keys.push_back(key);
    };
    for (auto const& object : objects) {
        if (!relationship.isToMany())
            add(referenceOf(*object, relationship));
        else
            for (auto const key : memberKeys(*object, relationship)) add(key);
    }
    auto found = objectsWithKeys(context, *relationship.destinationEntity(), keys);
    fill(context, found);
    return found;
}

/// The objects keep what was found: by their batches, of which one result has several.
void keep(std::span<Ref<NSManagedObject> const> objects, Objects const& found) {
    FaultBatch* last = nullptr;
    for (auto const& object : objects) {
        auto* const batch = GraphAccess::state(*object).batch.get();
        if (batch == last || batch->isLone()) continue;
        batch->hold(found);
        last = batch;
    }
}

} // namespace

Ref<NSError> prefetch(ContextState& context, NSEntityDescription const& entity, std::span<Ref<NSManagedObject> const> objects,
                      std::string_view keyPath) {
    auto const* at = &entity;
    Objects current(objects.begin(), objects.end());
    for (auto rest = keyPath; !rest.empty() && !current.empty();) {
        auto const key = rest.substr(0, rest.find('.'));
        rest.remove_prefix(std::min(rest.size(), key.size() + 1));
        auto const* property = at->propertyNamed(key);
        auto const* relationship = property ? property->asRelationship() : nullptr;
        if (!relationship)
            return storeError(StoreErrorCode::UnknownEntity,
                              "The entity " + at->name() + " has no relationship \"" + std::string{key} + "\" to be prefetched.");
        auto found = follow(context, current, *relationship);
        keep(objects, found);
        at = relationship->destinationEntity();
        current = std::move(found);
    }
    return nullptr;
}

} // namespace Tessarin
