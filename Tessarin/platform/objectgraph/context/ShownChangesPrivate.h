#pragma once
#include "Tessarin/platform/objectgraph/persistence/stores/KeyTablePrivate.h"
#include "Tessarin/platform/runtime/Ref.h"
#include <vector>

namespace Tessarin {

class ContextState;
class NSManagedObject;
class NSRelationshipDescription;

/// What is unsaved in a context and differs from what its children are shown. Empty as long as there are no children.
struct Unshown {
    struct Link {
        NSManagedObject const* owner; // among `objects`
        NSRelationshipDescription const* relationship;
        RecordKey member;
        bool isMember; // it joined; else it left
    };
    std::vector<Ref<NSManagedObject>> objects;
    std::vector<Link> links; // in the order in which they were made
};

/// Brings what children see of the unsaved changes up to date, at the price of what was noted since the last time. On the
/// context's queue, like what follows.
void showUnsaved(ContextState& context);
/// Notes that the object's unsaved changes are others now, also for who asked for the touched objects.
void noteUnshown(ContextState& context, NSManagedObject& object);
/// Notes, before the owner is marked as changed, that a record has joined or left the members of a to-many relationship.
void noteUnshownLink(NSManagedObject& owner, NSRelationshipDescription const& relationship, RecordKey member, bool isMember);

} // namespace Tessarin
