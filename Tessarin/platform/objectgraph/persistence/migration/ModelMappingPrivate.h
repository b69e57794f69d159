#pragma once
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"

namespace Tessarin {

/// What the things of one model were in another, found by renaming identifiers and names alone. Both models must outlive it.
///
/// Nothing old is given twice. In this order, and among equals by name, a new thing is what an old one was that
/// 1. has its name and its renaming identifier, where that is another name (it was renamed before, and is the same since);
/// 2. its renaming identifier names; 3. has the renaming identifier that it states; 4. has its name;
/// 5. was renamed from its name (an older model opens a newer file). All others are new.
class TESSARIN_API ModelMapping {
public:
    ModelMapping(NSManagedObjectModel const& from, NSManagedObjectModel const& to);

    NSManagedObjectModel const& from() const noexcept { return from_; }
    NSManagedObjectModel const& to() const noexcept { return to_; }
    /// The entity that this one was; null when it is new.
    NSEntityDescription const* sourceOf(NSEntityDescription const& entity) const noexcept { return sources_[entity.index()]; }
    /// What the property of the new model was in the records of `entity`; null when it is new there.
    NSPropertyDescription const* sourceOf(NSEntityDescription const& entity,
                                          NSPropertyDescription const& property) const noexcept {
        return propertySources_[entity.index()][property.index()];
    }
    /// What the old entity is now; null when it is gone.
    NSEntityDescription const* targetOf(NSEntityDescription const& old) const noexcept { return targets_[old.index()]; }
    /// Every old stored relationship whose links become those of `relationship`: one for each entity that has it, usually the
    /// same.
    std::vector<NSRelationshipDescription const*> sourcesOf(NSRelationshipDescription const& relationship) const;
    /// Whether all records that had `old`, and are still there, have its links in `relationship`.
    bool takesAllOf(NSRelationshipDescription const& old, NSRelationshipDescription const& relationship) const;
    /// The new entities whose records the old relationship may have led to, but the new one may not.
    std::vector<NSEntityDescription const*> strayedBetween(NSRelationshipDescription const& old,
                                                           NSRelationshipDescription const& relationship) const;
    /// Whether there are entities whose records go.
    bool dropsEntities() const noexcept { return dropsEntities_; }

private:
    NSManagedObjectModel const& from_;
    NSManagedObjectModel const& to_;
    std::vector<NSEntityDescription const*> sources_; // by index of the new entity
    std::vector<NSEntityDescription const*> targets_; // by index of the old one
    std::vector<std::vector<NSPropertyDescription const*>> propertySources_; // by indexes of the new entity and its property
    bool dropsEntities_ = false;
};

/// Whether the store keeps values or links of the property.
bool isStored(NSPropertyDescription const& property);
/// The other end with which a relationship shares its links in the store; null when it has them to itself.
NSRelationshipDescription const* storedInverseOf(NSRelationshipDescription const& relationship);

} // namespace Tessarin
