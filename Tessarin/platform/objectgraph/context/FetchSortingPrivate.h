#pragma once
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <span>
#include <vector>

namespace Tessarin {

/// The order of a request: by its descriptors, then by key, what has no permanent one yet behind the rest in the order in which
/// it was made. What an object is sorted by is asked for once.
class FetchSorting {
public:
    using Objects = std::vector<Ref<NSManagedObject>>;
    /// A place of a result: a record that the store has found, or an object, whose key may change.
    struct Place {
        RecordKey key;
        Ref<NSManagedObject> object; // null for what the store has found
    };

    explicit FetchSorting(std::span<Ref<NSSortDescriptor> const> descriptors) : descriptors_(descriptors) {}

    void sort(Objects& objects, Objects more) const;
    /// Puts `more` into their places among objects that stand in order. Of those only the ones that are compared are asked.
    void merge(Objects& objects, Objects more) const;
    /// The same among keys; `objectOf` is asked for those that are compared.
    std::vector<Place> merge(std::span<RecordKey const> keys, Objects more,
                             FunctionRef<Ref<NSManagedObject>(RecordKey)> objectOf) const;

private:
    struct Keyed {
        Ref<NSManagedObject> object;
        List keys;
    };
    Keyed keyed(Ref<NSManagedObject> const& object) const;
    std::vector<Keyed> keyed(Objects const& objects) const;
    std::vector<Keyed> sorted(Objects const& objects) const;
    bool isBefore(Keyed const& a, Keyed const& b) const;

    std::span<Ref<NSSortDescriptor> const> descriptors_;
};

} // namespace Tessarin
