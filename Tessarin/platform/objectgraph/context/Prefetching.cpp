#include "Tessarin/platform/objectgraph/context/PrefetchingPrivate.h"

#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <algorithm>
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
            setLoadedMembers(*owner, relationship,
                             reader.withChanges(relationship, owner->entity(), owner->recordKey(),
                                                std::move(members[owner->recordKey()]), RecordReader::formerOf(*owner)));
}

/// The living objects of a step that the relationship can be read of.
Objects ownersOf(ContextState& context, std::span<RecordKey const> keys, NSRelationshipDescription const& relationship) {
    Objects owners;
    for (auto const key : keys) {
        auto living = key > 0 ? context.link->find(key) : nullptr;
        if (!living || !living->entity().isKindOf(relationship.entity())) continue;
        auto const& state = GraphAccess::state(*living);
        if (!state.has(ObjectState::Deleted) && !state.has(ObjectState::Gone)) owners.push_back(std::move(living));
    }
    return owners;
}

FaultBatch::Walk& walkOf(FaultBatch& batch, NSRelationshipDescription const& relationship) {
    auto const property = static_cast<std::uint32_t>(relationship.index());
    auto const found = std::ranges::find(batch.walks, property, &FaultBatch::Walk::property);
    return found != batch.walks.end() ? *found : batch.walks.emplace_back(FaultBatch::Walk{.property = property});
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

bool readMembersAhead(ContextState& context, NSManagedObject& owner, NSRelationshipDescription const& relationship) {
    constexpr std::uint32_t shortest = 4, longest = 512, mostLeftOut = 8; // owners of a step
    auto const batch = GraphAccess::state(owner).batch; // kept, for its members may go
    if (batch->isLone() || batch->members.size() < 3 || owner.recordKey() < 0) return false;
    auto& walk = walkOf(*batch, relationship);
    std::span const members(batch->members);
    auto const rest = members.subspan(std::min<std::size_t>(walk.next, members.size()));
    auto const near = rest.first(std::min<std::size_t>(rest.size(), mostLeftOut));
    auto const found = std::ranges::find(near, owner.recordKey());
    bool const goesOn = found != near.end();
    auto const at = goesOn ? walk.next + static_cast<std::uint32_t>(found - near.begin())
                           : static_cast<std::uint32_t>(std::ranges::find(members, owner.recordKey()) - members.begin());
    walk.length = goesOn ? std::clamp(2 * walk.length, 1U, longest) : 1;
    walk.next = at + (walk.length < shortest ? 1 : walk.length);
    bool const readsValues = !walk.held.empty() && !walk.held.front()->isFault(); // of the last step's members
    walk.held.clear();
    if (walk.length < shortest || at >= members.size()) return false;

    auto const step = members.subspan(at, std::min<std::size_t>(walk.length, members.size() - at));
    try {
        auto const owners = ownersOf(context, step, relationship);
        loadMembers(context, owners, relationship);
        std::vector<RecordKey> keys;
        for (auto const& each : owners)
            for (auto const key : memberKeys(*each, relationship))
                if (key > 0) keys.push_back(key);
        auto const& destination = *relationship.destinationEntity();
        walk.held = readsValues ? filledObjects(context, destination, keys) : objectsWithKeys(context, destination, keys);
        std::erase_if(walk.held, [&](auto const& object) { return !batch->mayHold(*object); });
    } catch (ErrorException const&) { // what cannot be read may be of another owner: this one is read alone
    }
    return hasLoadedMembers(owner, relationship);
}

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
