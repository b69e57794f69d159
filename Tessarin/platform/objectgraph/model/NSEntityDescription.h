#pragma once
#include "Tessarin/platform/objectgraph/model/NSAttributeDescription.h"
#include "Tessarin/platform/objectgraph/model/NSRelationshipDescription.h"
#include "Tessarin/platform/objectgraph/model/NameIndex.h"
#include <span>

namespace Tessarin {

class NSManagedObjectModel;

/// An index over properties; has no effect on results.
struct NSFetchIndexDescription {
    struct Element {
        NSPropertyDescription const* property;
        bool ascending;
    };
    std::string name;
    std::vector<Element> elements;
};

/// An entity of a model: its name, its class, its place among the others and its properties. Belongs to its model: keep the
/// model for as long as you use it. Immutable; any thread.
///
///     auto const* book = model->entityNamed("Book");
///     for (auto const* property : book->properties()) show(property->name());
class TESSARIN_API NSEntityDescription : public NSObject {
public:
    std::string const& name() const noexcept { return definition_.name; }
    /// The class of its objects; "NSManagedObject" when none is stated.
    std::string const& managedObjectClassName() const noexcept { return definition_.options.className; }
    bool isAbstract() const noexcept { return definition_.options.isAbstract; }
    NSManagedObjectModel const* managedObjectModel() const noexcept { return model_; }
    /// Its position in the model's `entities()`.
    std::size_t index() const noexcept { return index_; }

    NSEntityDescription const* superentity() const noexcept { return super_; }
    /// The direct sub-entities, in the model's order.
    std::span<NSEntityDescription const* const> subentities() const noexcept;
    /// The topmost ancestor; itself when it has no parent.
    NSEntityDescription const* rootEntity() const noexcept { return root_; }
    /// Whether it is `entity` or inherits from it.
    bool isKindOf(NSEntityDescription const* entity) const noexcept;

    /// All properties, inherited ones first in the parent's order: an inherited property has the same position everywhere.
    std::span<NSPropertyDescription const* const> properties() const noexcept;
    /// The property at that position; null behind the last.
    NSPropertyDescription const* propertyAt(std::size_t index) const noexcept {
        return index < properties_.size() ? properties_[index] : nullptr;
    }
    std::span<NSAttributeDescription const* const> attributes() const noexcept;
    std::span<NSRelationshipDescription const* const> relationships() const noexcept;
    /// Null when there is none. One hash look-up, no allocation.
    NSPropertyDescription const* propertyNamed(std::string_view name) const noexcept {
        auto const at = names_.find(name);
        return at == NameIndex::none ? nullptr : properties_[at];
    }
    using AttributesByName = std::map<std::string_view, NSAttributeDescription const*>;
    using RelationshipsByName = std::map<std::string_view, NSRelationshipDescription const*>;
    AttributesByName const& attributesByName() const noexcept { return attributesByName_; }
    RelationshipsByName const& relationshipsByName() const noexcept { return relationshipsByName_; }

    /// Properties that must be unique together; those declared here, an ancestor's hold too.
    std::span<std::vector<NSPropertyDescription const*> const> uniquenessConstraints() const noexcept;
    /// Those declared here. Single attributes may also say `isIndexed()`.
    std::span<NSFetchIndexDescription const> indexes() const noexcept;

    std::string const& renamingIdentifier() const noexcept { return definition_.options.renamingIdentifier; }
    std::string const& versionHashModifier() const noexcept { return definition_.options.versionHashModifier; }
    UserInfo const& userInfo() const noexcept { return definition_.options.userInfo; }
    /// 32 hexadecimal digits that change with everything that affects how its objects are stored, and with nothing else:
    /// not with the order of a document, defaults, bounds, delete rules, classes or notes.
    std::string const& versionHash() const noexcept { return versionHash_; }
    /// The plain description of what is declared here.
    EntityDefinition definition() const;

    std::string description() const override;

protected:
    NSEntityDescription() = default;
    using NSObject::init;
    virtual void init(EntityDefinition definition);

private:
    friend class ModelAssembler;
    EntityDefinition definition_; // without the properties, which are in own_
    NSManagedObjectModel const* model_ = nullptr;
    NSEntityDescription const* super_ = nullptr;
    NSEntityDescription const* root_ = nullptr;
    std::size_t index_ = 0;
    std::vector<NSEntityDescription const*> subentities_;
    std::vector<Ref<NSPropertyDescription>> own_; // those declared here
    std::vector<NSPropertyDescription const*> properties_;
    std::vector<NSAttributeDescription const*> attributes_;
    std::vector<NSRelationshipDescription const*> relationships_;
    NameIndex names_; // positions in properties_
    AttributesByName attributesByName_;
    RelationshipsByName relationshipsByName_;
    std::vector<std::vector<NSPropertyDescription const*>> constraints_;
    std::vector<NSFetchIndexDescription> indexes_;
    std::string versionHash_;
};

} // namespace Tessarin
