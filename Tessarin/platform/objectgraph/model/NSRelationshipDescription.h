#pragma once
#include "Tessarin/platform/objectgraph/model/NSPropertyDescription.h"

namespace Tessarin {

class NSError;

/// A relationship of an entity: where it leads, how many, and what a deletion does. Immutable; any thread.
class TESSARIN_API NSRelationshipDescription : public NSPropertyDescription {
public:
    NSEntityDescription const* destinationEntity() const noexcept { return destination_; }
    bool isToMany() const noexcept { return definition_.toMany; }
    bool isOrdered() const noexcept { return definition_.options.ordered; } // never for a to-one
    NSDeleteRule deleteRule() const noexcept { return definition_.options.deleteRule; }
    std::size_t minCount() const noexcept { return definition_.options.minCount; }
    /// 0 means unbounded; 1 for every to-one.
    std::size_t maxCount() const noexcept { return definition_.options.maxCount; }

    /// The other end as this side names it; null when one-way. The other end may name a third (`isReciprocal` tells).
    NSRelationshipDescription const* inverseRelationship() const noexcept { return inverse_; }
    /// Whether the inverse's inverse is this relationship: both ends are kept up together.
    bool isReciprocal() const noexcept { return inverse_ && inverse_->inverse_ == this; }

    std::string const& renamingIdentifier() const noexcept override { return definition_.options.renamingIdentifier; }
    std::string const& versionHashModifier() const noexcept override { return definition_.options.versionHashModifier; }
    UserInfo const& userInfo() const noexcept override { return definition_.options.userInfo; }
    RelationshipDefinition const& definition() const noexcept { return definition_; }

    /// What is wrong with saving `count` destinations: none though mandatory, fewer than the minimum of a relationship that
    /// is not optional, more than the maximum. Null when it is fine.
    Ref<NSError> validateCount(std::size_t count) const;
    /// The error for what cannot be its destination.
    Ref<NSError> wrongKind(Value const& value) const;

protected:
    NSRelationshipDescription();
    using NSObject::init;
    virtual void init(RelationshipDefinition definition);

private:
    friend class ModelAssembler;
    RelationshipDefinition definition_;
    NSEntityDescription const* destination_ = nullptr;
    NSRelationshipDescription const* inverse_ = nullptr;
};

} // namespace Tessarin
