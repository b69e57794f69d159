#pragma once
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"

namespace Tessarin {

/// One end of a relationship alone, without a look at the other. On the context's queue.

/// As what an object is marked that changes.
ObjectState::Flag changeOf(NSManagedObject const& object);
/// The state of a to-many, with the keys that its members have now.
ToManyState& toManyOf(NSManagedObject& owner, NSRelationshipDescription const& relationship);
/// Whether members were read, and are what would be read now.
bool isCurrent(ObjectState const& owner, ToManyState& toMany);
bool mayBeMember(NSManagedObject const& object, NSRelationshipDescription const& relationship);
/// For the recorder, before a member comes or goes, or the order changes.
void record(NSManagedObject& owner, NSRelationshipDescription const& relationship);
void setReference(NSManagedObject& object, NSRelationshipDescription const& relationship, RecordKey key);
void addMember(NSManagedObject& owner, NSRelationshipDescription const& relationship, RecordKey key);
void removeMember(NSManagedObject& owner, NSRelationshipDescription const& relationship, RecordKey key);
/// The members of an ordered relationship in another order.
void setOrder(NSManagedObject& owner, NSRelationshipDescription const& relationship, KeySet members);
/// `object` lets go of `key`.
void detachEnd(NSManagedObject& object, NSRelationshipDescription const& relationship, RecordKey key);
/// `object` takes hold of `other`; whoever had it there before lets go.
void attachEnd(NSManagedObject& object, NSRelationshipDescription const& relationship, NSManagedObject& other);

} // namespace Tessarin
