#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"

namespace Tessarin {

void NSEntityDescription::init(EntityDefinition definition) {
    NSObject::init();
    definition_ = std::move(definition);
}

bool NSEntityDescription::isKindOf(NSEntityDescription const* entity) const noexcept {
    for (auto const* at = this; at; at = at->super_)
        if (at == entity) return true;
    return false;
}

EntityDefinition NSEntityDescription::definition() const {
    auto definition = definition_;
    for (auto const& property : own_) {
        if (auto const* attribute = property->asAttribute())
            definition.attributes.push_back(attribute->definition());
        else
            definition.relationships.push_back(property->asRelationship()->definition());
    }
    return definition;
}

std::string NSEntityDescription::description() const { return "entity " + name() + " of class " + managedObjectClassName(); }

std::string NSPropertyDescription::description() const { return (entity_ ? entity_->name() + "." : std::string{}) + name(); }

std::span<NSEntityDescription const* const> NSEntityDescription::subentities() const noexcept { return subentities_; }
std::span<NSPropertyDescription const* const> NSEntityDescription::properties() const noexcept { return properties_; }
std::span<NSAttributeDescription const* const> NSEntityDescription::attributes() const noexcept { return attributes_; }
std::span<NSRelationshipDescription const* const> NSEntityDescription::relationships() const noexcept { return relationships_; }
std::span<std::vector<NSPropertyDescription const*> const> NSEntityDescription::uniquenessConstraints() const noexcept {
    return constraints_;
}
std::span<NSFetchIndexDescription const> NSEntityDescription::indexes() const noexcept { return indexes_; }

} // namespace Tessarin
