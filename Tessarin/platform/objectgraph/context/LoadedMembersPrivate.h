#pragma once
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/runtime/Ref.h"
#include <cstddef>
#include <unordered_map>
#include <vector>

namespace Tessarin {

class NSManagedObject;
class NSRelationshipDescription;

/// Whose members of which to-many relationships were read: what others change beyond the contexts concerns these objects, and not
/// all that are registered. On the context's queue.
class LoadedMembers {
public:
    void note(NSManagedObject& owner, NSRelationshipDescription const& relationship);
    /// Hands over the living owners of the relationships that are meant. Those for which `each` gives true are forgotten.
    void take(FunctionRef<bool(NSRelationshipDescription const&)> isMeant,
              FunctionRef<bool(NSManagedObject&, NSRelationshipDescription const&)> each);

private:
    struct Owners {
        std::vector<WeakRef<NSManagedObject>> objects; // some of them more than once, or gone
        std::size_t sweepAt = 64;
    };
    std::unordered_map<NSRelationshipDescription const*, Owners> owners_;
};

} // namespace Tessarin
