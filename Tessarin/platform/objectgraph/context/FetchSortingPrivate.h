#pragma once
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <span>
#include <unordered_map>
#include <vector>

namespace Tessarin {

class SearchRanking;

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

    /// `ranking` must be there when a descriptor asks for ranks, and outlive this.
    explicit FetchSorting(std::span<Ref<NSSortDescriptor> const> descriptors, SearchRanking const* ranking = nullptr)
        : descriptors_(descriptors), ranking_(ranking) {}

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
    Value rankOf(NSManagedObject& object) const;
    Keyed keyed(Ref<NSManagedObject> const& object) const;
    std::vector<Keyed> keyed(Objects const& objects) const;
    std::vector<Keyed> sorted(Objects const& objects) const;
    bool isBefore(Keyed const& a, Keyed const& b) const;

    std::span<Ref<NSSortDescriptor> const> descriptors_;
    SearchRanking const* ranking_;
    mutable std::unordered_map<NSManagedObject const*, double> ranks_; // of those that were compared
};

} // namespace Tessarin
