#pragma once
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/runtime/FunctionRef.h"

namespace Tessarin {

/// How the records of one model become those of another, as far as that follows from the two alone: entities and properties
/// are found again by their renaming identifiers or their names. Both models must outlive it.
class TESSARIN_API ModelMapping {
public:
    /// Throws Refused, which names entity, property and reason, where records would need what no rule tells. `hasRecords` says of
    /// an entity of `from` whether there are any: where there are none, none has to be told.
    ModelMapping(NSManagedObjectModel const& from, NSManagedObjectModel const& to,
                 FunctionRef<bool(NSEntityDescription const&)> hasRecords = [](NSEntityDescription const&) { return true; });

    /// The entity that this one was; null when it is new.
    NSEntityDescription const* sourceOf(NSEntityDescription const& entity) const noexcept { return sources_[entity.index()]; }
    /// What the property of the new model was in the records of `entity`; null when it is new there.
    NSPropertyDescription const* sourceOf(NSEntityDescription const& entity, NSPropertyDescription const& property) const;
    /// Every old relationship whose links become those of `relationship`: one for each entity that has it, usually the same.
    std::vector<NSRelationshipDescription const*> sourcesOf(NSRelationshipDescription const& relationship) const;
    /// Whether there are entities whose records go.
    bool dropsEntities() const noexcept { return dropsEntities_; }

private:
    void findEntities();
    void check(NSEntityDescription const& entity, NSPropertyDescription const& property) const;
    void checkAttribute(NSEntityDescription const& entity, NSAttributeDescription const& attribute,
                        NSPropertyDescription const* source) const;
    void checkRelationship(NSEntityDescription const& entity, NSRelationshipDescription const& relationship,
                           NSPropertyDescription const* source) const;

    NSManagedObjectModel const& from_;
    NSManagedObjectModel const& to_;
    std::vector<NSEntityDescription const*> sources_; // by index of the new entity
    bool dropsEntities_ = false;
};

/// A type in words: "Integer 16".
char const* nameOf(NSAttributeType type) noexcept;
/// Whether values of the one type are values of the other without loss: an integer in a wider one, a number in a decimal.
bool isWidening(NSAttributeType from, NSAttributeType to) noexcept;

} // namespace Tessarin
