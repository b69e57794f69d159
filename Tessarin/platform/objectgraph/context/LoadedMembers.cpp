#include "Tessarin/platform/objectgraph/context/LoadedMembersPrivate.h"

#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"

#include <algorithm>
#include <unordered_set>

namespace Tessarin {

void LoadedMembers::note(NSManagedObject& owner, NSRelationshipDescription const& relationship) {
    auto& [objects, sweepAt] = owners_[&relationship];
    if (objects.size() >= sweepAt) {
        std::unordered_set<NSManagedObject const*> kept;
        std::erase_if(objects, [&](auto const& each) {
            auto const living = each.lock();
            return !living || !kept.insert(living.get()).second;
        });
        sweepAt = std::max<std::size_t>(64, objects.size() * 2);
    }
    objects.push_back(owner.self<NSManagedObject>());
}

void LoadedMembers::take(FunctionRef<bool(NSRelationshipDescription const&)> isMeant,
                         FunctionRef<bool(NSManagedObject&, NSRelationshipDescription const&)> each) {
    for (auto& [relationship, owners] : owners_)
        if (isMeant(*relationship))
            std::erase_if(owners.objects, [&](auto const& object) {
                auto const living = object.lock();
                return !living || each(*living, *relationship);
            });
}

} // namespace Tessarin
