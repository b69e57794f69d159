#pragma once
#include "Tessarin/platform/objectgraph/model/ModelDefinition.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <cstdint>

namespace Tessarin {

class NSAttributeDescription;
class NSEntityDescription;
class NSRelationshipDescription;

/// An attribute or a relationship of an entity. Belongs to its model: keep the model for as long as you use it.
/// Immutable; any thread.
class TESSARIN_API NSPropertyDescription : public NSObject {
public:
    std::string const& name() const noexcept { return *name_; }
    /// The entity that declares it; its sub-entities share the same object.
    NSEntityDescription const* entity() const noexcept { return entity_; }
    /// Its position in `properties()` of the declaring entity and of every sub-entity.
    std::size_t index() const noexcept { return index_; }
    /// Stands for this property and never for another, not even for one that a later model has in its memory. The low bits are its
    /// position, as far as that fits in them. Never 0.
    std::uint64_t mark() const noexcept { return mark_; }
    static constexpr std::uint64_t positionInMark = (std::uint64_t{1} << 20) - 1;

    bool isOptional() const noexcept { return isOptional_; }
    bool isTransient() const noexcept { return isTransient_; }
    /// The name it had in the previous version of the model; its own name when it was not renamed.
    virtual std::string const& renamingIdentifier() const noexcept = 0;
    virtual std::string const& versionHashModifier() const noexcept = 0;
    virtual UserInfo const& userInfo() const noexcept = 0;

    /// This property as the one or the other; null when it is the other.
    NSAttributeDescription const* asAttribute() const noexcept { return attribute_; }
    NSRelationshipDescription const* asRelationship() const noexcept { return relationship_; }

    std::string description() const override;

protected:
    NSPropertyDescription() = default;

    friend class ModelAssembler;
    std::string const* name_ = nullptr; // in the subclass's definition
    NSEntityDescription const* entity_ = nullptr;
    NSAttributeDescription const* attribute_ = nullptr;
    NSRelationshipDescription const* relationship_ = nullptr;
    std::size_t index_ = 0;
    std::uint64_t mark_ = 0;
    bool isOptional_ = true;
    bool isTransient_ = false;
};

} // namespace Tessarin
