#pragma once
#include "Tessarin/platform/runtime/Ref.h"
#include <vector>

namespace Tessarin {

class NSEntityDescription;
class NSManagedObject;

/// A context's objects with unsaved changes, in the order in which they joined. Each knows its place, so that it leaves in a time
/// that does not grow with the others; the gaps close when the list is read the next time.
class ChangedObjects {
public:
    void add(Ref<NSManagedObject> object);
    /// Ignored for one that is not in the list.
    void remove(NSManagedObject& object);

    bool empty() const noexcept { return size() == 0; }
    std::size_t size() const noexcept { return objects_.size() - gaps_; }
    std::size_t countOf(NSEntityDescription const& entity, bool includesSubentities) const noexcept;
    auto begin() const { return dense().begin(); }
    auto end() const { return dense().end(); }
    Ref<NSManagedObject> const& operator[](std::size_t at) const { return dense()[at]; }

private:
    std::vector<Ref<NSManagedObject>> const& dense() const {
        if (gaps_ != 0) closeGaps();
        return objects_;
    }
    void closeGaps() const;

    mutable std::vector<Ref<NSManagedObject>> objects_; // null where one has left
    mutable std::size_t gaps_ = 0;
    std::vector<std::size_t> counts_; // by index of the entity
};

} // namespace Tessarin
