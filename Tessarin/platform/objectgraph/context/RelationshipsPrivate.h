#pragma once
#include "Tessarin/platform/objectgraph/context/ContextLinkPrivate.h"
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include "Tessarin/platform/objectgraph/context/ObjectExtrasPrivate.h"
#include <span>

namespace Tessarin {

struct ReadMembers;

/// The ends of relationships by key, as a context sees them now. On the context's queue.

/// Links that the object keeps by keys that have become permanent since are kept by those from now on.
void replaceTemporaryKeys(ObjectState& state);
inline void updateKeys(ObjectState& state) {
    if (state.extras && state.extras->keysAsOf != state.link()->keyChanges()) replaceTemporaryKeys(state);
}
/// The destination of a to-one, or 0.
RecordKey referenceOf(NSManagedObject& object, NSRelationshipDescription const& relationship);
/// The state of a to-many with its members read.
ToManyState& loadedMembers(NSManagedObject& owner, NSRelationshipDescription const& relationship);
bool hasLoadedMembers(NSManagedObject& owner, NSRelationshipDescription const& relationship);
/// The members were read: these, with the owner's unsaved changes on top.
ToManyState& setLoadedMembers(NSManagedObject& owner, NSRelationshipDescription const& relationship, ReadMembers read);
/// The members of a to-many, in order when it has one; valid until the relationship changes.
std::span<RecordKey const> memberKeys(NSManagedObject& owner, NSRelationshipDescription const& relationship);
bool hasMember(NSManagedObject& owner, NSRelationshipDescription const& relationship, NSManagedObject& member);
/// `other`, a destination of `object`'s relationship, no longer points back to it.
void letGoAtOtherEnd(NSManagedObject& object, NSRelationshipDescription const& relationship, NSManagedObject& other);
/// The record was changed, or deleted, beneath a to-one that leads somewhere here: that is an unsaved link of both ends from now on.
void keepLinkUnsaved(ContextState& context, NSManagedObject& object, NSRelationshipDescription const& relationship);
/// Somebody else deleted the record, and knew only the links that it had there: those of this context let go of it, too.
void letGoOfGone(ContextState& context, NSManagedObject& object);
/// Somebody else linked an object that is deleted here: those new links go with it.
void cutNewLinks(ContextState& context, NSManagedObject& deleted, RelationshipChange const& change);

/// The destination of a to-one as it was read, or 0.
RecordKey readReferenceOf(ObjectState const& state, NSRelationshipDescription const& relationship);
/// Objects go as they stand: whoever they are linked with lets go of them, whatever the delete rules say, and nobody goes with them.
/// Among each other they stay linked, as those of a cascade do.
void deleteAlone(ContextState& context, std::span<Ref<NSManagedObject> const> objects);

/// What keeps a deleted object from going, as everything stands now; null when nothing does.
Ref<NSError> denialOf(NSManagedObject& object);
/// Whoever a changed or deleted object was linked with, or no longer is, shows what was before its changes.
void undoLinks(ContextState& context, NSManagedObject& object);

/// Whether an object's texts and data are more than a store can hold in one record; null when they are not.
Ref<NSError> sizeProblem(NSManagedObject& object);
/// What is wrong with saving a value in an attribute of an entity, and null when it is fine.
Ref<NSError> valueProblem(NSEntityDescription const& entity, NSAttributeDescription const& attribute, Value const& value);

} // namespace Tessarin
