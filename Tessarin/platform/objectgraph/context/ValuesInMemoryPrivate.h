#pragma once
#include "Tessarin/platform/runtime/Ref.h"
#include <map>
#include <optional>
#include <unordered_map>
#include <vector>

namespace Tessarin {

class ContextState;
class NSAttributeDescription;
class NSManagedObject;
class Value;

/// Finds a context's objects by the value of an attribute: an import that looks up what it has made so far would otherwise look
/// at all of that each time. An attribute is entered when it is asked for first, and kept up from then on; entries that are
/// out of date are noticed where they are met. Objects whose values were never asked for are not known.
class ValuesInMemory {
public:
    /// The objects whose attribute has this value, and perhaps a few others; absent for types and values that are not looked up
    /// by equality.
    std::optional<std::vector<Ref<NSManagedObject>>> find(ContextState const& context, NSAttributeDescription const& attribute,
                                                          Value const& value);
    /// The object shows other values than before, or has just shown its first.
    void note(NSManagedObject& object) {
        for (auto& [attribute, entries] : entries_) enter(object, *attribute, entries);
    }
    void note(NSManagedObject& object, NSAttributeDescription const& attribute) {
        if (auto const found = entries_.find(&attribute); found != entries_.end()) enter(object, attribute, found->second);
    }
    /// The object has unsaved changes from now on; perhaps of to-many relationships only, and nobody has asked for its values.
    void noteChanged(NSManagedObject& object);
    /// Those with unsaved changes whose values were never asked for: `find` does not know them.
    std::vector<Ref<NSManagedObject>> changedFaults();

private:
    struct Entries {
        std::unordered_multimap<std::uint64_t, WeakRef<NSManagedObject>> byHash; // of the value
        std::size_t atStart = 0;
        bool isKnown = false;
    };
    static void enter(NSManagedObject& object, NSAttributeDescription const& attribute, Entries& entries);

    std::map<NSAttributeDescription const*, Entries> entries_;
    std::vector<WeakRef<NSManagedObject>> changedFaults_; // and some that are none any more
    std::size_t changedFaultsAtSweep_ = 0;
};

} // namespace Tessarin
