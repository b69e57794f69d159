#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"

#include "Tessarin/platform/runtime/Fatal.h"

namespace Tessarin {

ModelBuilder::ModelBuilder(std::string versionIdentifier) { definition_.versionIdentifier = std::move(versionIdentifier); }

ModelBuilder& ModelBuilder::entity(std::string name, EntityOptions options) {
    definition_.entities.push_back({.name = std::move(name), .options = std::move(options)});
    return *this;
}

ModelBuilder& ModelBuilder::attribute(std::string name, NSAttributeType type, AttributeOptions options) {
    current("attribute").attributes.push_back({std::move(name), type, std::move(options)});
    return *this;
}

ModelBuilder& ModelBuilder::toOne(std::string name, std::string destination, RelationshipOptions options) {
    current("relationship").relationships.push_back({std::move(name), std::move(destination), false, std::move(options)});
    return *this;
}

ModelBuilder& ModelBuilder::toMany(std::string name, std::string destination, RelationshipOptions options) {
    current("relationship").relationships.push_back({std::move(name), std::move(destination), true, std::move(options)});
    return *this;
}

ModelBuilder& ModelBuilder::unique(std::vector<std::string> properties) {
    current("uniqueness constraint").uniquenessConstraints.push_back(std::move(properties));
    return *this;
}

ModelBuilder& ModelBuilder::index(std::string name, std::vector<IndexDefinition::Element> elements) {
    current("index").indexes.push_back({std::move(name), std::move(elements)});
    return *this;
}

ModelBuilder& ModelBuilder::configuration(std::string name, std::vector<std::string> entities) {
    definition_.configurations.insert_or_assign(std::move(name), std::move(entities));
    return *this;
}

ModelBuilder& ModelBuilder::fetchRequestTemplate(FetchRequestTemplate request) {
    definition_.fetchRequestTemplates.push_back(std::move(request));
    return *this;
}

namespace {

/// A document may name what is not there, and loses that; in code it is a slip. Empty when there is none.
std::string slipIn(EntityDefinition const& definition, NSEntityDescription const& entity) {
    auto const place = [&](std::string const& name) { return entity.name() + "." + name; };
    for (auto const& relationship : definition.relationships) {
        auto const& inverse = relationship.options.inverse;
        auto const* built = entity.propertyNamed(relationship.name)->asRelationship();
        if (!inverse.empty() && !built->inverseRelationship())
            return "the inverse of " + place(relationship.name) + ", " + relationship.destination + "." + inverse +
                   ", is no relationship";
    }
    for (auto const& names : definition.uniquenessConstraints)
        for (auto const& name : names)
            if (!entity.propertyNamed(name)) return place(name) + ", which is to be unique, is missing";
    for (auto const& index : definition.indexes)
        for (auto const& element : index.elements)
            if (!entity.propertyNamed(element.property))
                return place(element.property) + ", which the index " + index.name + " names, is missing";
    return {};
}

} // namespace

Ref<NSManagedObjectModel> ModelBuilder::build() const {
    std::string problem;
    auto model = NSManagedObjectModel::modelWithDefinition(definition_, &problem);
    for (auto const& entity : definition_.entities)
        if (model && problem.empty()) problem = slipIn(entity, *model->entityNamed(entity.name));
    if (!problem.empty() || !model) fatal("the model cannot be built: " + problem);
    return model;
}

EntityDefinition& ModelBuilder::current(char const* what) {
    if (definition_.entities.empty())
        fatal(std::string{"the model cannot be built: "} + what + " stands before the first entity");
    return definition_.entities.back();
}

} // namespace Tessarin
