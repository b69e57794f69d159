#include "Tessarin/platform/objectgraph/model/ModelAssemblerPrivate.h"

#include "Tessarin/platform/objectgraph/model/EntityHashPrivate.h"
#include "Tessarin/platform/objectgraph/model/StableHashPrivate.h"

#include <algorithm>
#include <atomic>

namespace Tessarin {
namespace {

constexpr std::size_t deepestInheritance = 100; // more is a circle, or a mistake

void normalize(EntityDefinition& entity) {
    if (entity.options.className.empty()) entity.options.className = "NSManagedObject";
    if (entity.options.renamingIdentifier.empty()) entity.options.renamingIdentifier = entity.name;
    std::erase_if(entity.uniquenessConstraints, [](auto const& names) { return names.empty(); });
    std::erase_if(entity.indexes, [](auto const& index) { return index.elements.empty(); });
}

std::uint64_t newMark(std::size_t index) {
    static std::atomic<std::uint64_t> last{0};
    auto const number = last.fetch_add(1, std::memory_order_relaxed) + 1;
    return number * (NSPropertyDescription::positionInMark + 1) + (index & NSPropertyDescription::positionInMark);
}

} // namespace

Ref<NSManagedObjectModel> ModelAssembler::assemble(ModelDefinition definition) {
    model_ = make<NSManagedObjectModel>();
    if (!addEntities(std::move(definition.entities)) || !linkParents()) return nullptr;
    auto const all = [this](bool (ModelAssembler::*step)(NSEntityDescription&)) {
        return std::ranges::all_of(parentsFirst_, [&](auto* entity) { return (this->*step)(*entity); });
    };
    if (!all(&ModelAssembler::addProperties) || !all(&ModelAssembler::linkRelationships)) return nullptr;
    for (auto* entity : parentsFirst_) resolveConstraints(*entity);
    finish(std::move(definition));
    return std::move(model_);
}

bool ModelAssembler::addEntities(std::vector<EntityDefinition> definitions) {
    // Neither list may move later: the index refers to the names inside the entities, the entities to the model.
    for (auto& definition : definitions) {
        if (definition.name.empty()) return fail("an entity has no name");
        normalize(definition);
        auto entity = make<NSEntityDescription>(std::move(definition));
        entity->model_ = model_.get();
        entity->index_ = model_->entities_.size();
        if (!model_->names_.append(entity->name())) return fail("two entities are named " + entity->name());
        model_->entitiesByName_.emplace(entity->name(), entity);
        model_->entities_.push_back(std::move(entity));
    }
    return true;
}

bool ModelAssembler::linkParents() {
    std::vector<std::vector<NSEntityDescription*>> byDepth;
    for (auto const& entity : model_->entities_) {
        auto const& parent = entity->definition_.options.parent;
        if (parent.empty()) continue;
        auto* const super = find(parent);
        if (!super) return fail("the parent " + parent + " of " + entity->name() + " is missing");
        entity->super_ = super;
        super->subentities_.push_back(entity.get());
    }
    for (auto const& entity : model_->entities_) {
        std::size_t depth = 0;
        auto const* root = static_cast<NSEntityDescription const*>(entity.get());
        for (; root->super_; root = root->super_)
            if (++depth > deepestInheritance) return fail(entity->name() + " inherits from itself, or too deeply");
        entity->root_ = root;
        if (byDepth.size() <= depth) byDepth.resize(depth + 1);
        byDepth[depth].push_back(entity.get());
    }
    for (auto const& level : byDepth) parentsFirst_.insert(parentsFirst_.end(), level.begin(), level.end());
    return true;
}

bool ModelAssembler::addProperties(NSEntityDescription& entity) {
    if (entity.super_) {
        auto const& super = *entity.super_;
        entity.properties_ = super.properties_;
        entity.attributes_ = super.attributes_;
        entity.relationships_ = super.relationships_;
        entity.attributesByName_ = super.attributesByName_;
        entity.relationshipsByName_ = super.relationshipsByName_;
        entity.names_ = super.names_;
    }
    for (auto& attribute : std::exchange(entity.definition_.attributes, {}))
        if (!addProperty(entity, make<NSAttributeDescription>(std::move(attribute)))) return false;
    for (auto& relationship : std::exchange(entity.definition_.relationships, {}))
        if (!addProperty(entity, make<NSRelationshipDescription>(std::move(relationship)))) return false;
    return true;
}

bool ModelAssembler::addProperty(NSEntityDescription& entity, Ref<NSPropertyDescription> property) {
    if (property->name().empty()) return fail("a property of " + entity.name() + " has no name");
    property->entity_ = &entity;
    property->index_ = entity.properties_.size();
    property->mark_ = newMark(property->index_);
    if (!entity.names_.append(property->name()))
        return fail("two properties of " + entity.name() + " are named " + property->name());
    entity.properties_.push_back(property.get());
    if (auto const* attribute = property->asAttribute()) {
        bool const isStoredText =
            attribute->attributeType() == NSAttributeType::String && !attribute->isTransient() && !attribute->isDerived();
        if (attribute->isFullText() && !isStoredText)
            return fail(entity.name() + "." + attribute->name() + " cannot be searched: fullText is for texts that are stored");
        entity.attributes_.push_back(attribute);
        entity.attributesByName_.emplace(attribute->name(), attribute);
    } else {
        entity.relationships_.push_back(property->asRelationship());
        entity.relationshipsByName_.emplace(property->name(), property->asRelationship());
    }
    entity.own_.push_back(std::move(property));
    return true;
}

bool ModelAssembler::linkRelationships(NSEntityDescription& entity) {
    for (auto const& property : entity.own_) {
        if (!property->asRelationship()) continue;
        auto& relationship = static_cast<NSRelationshipDescription&>(*property);
        auto const& [name, destination, toMany, options] = relationship.definition_;
        relationship.destination_ = find(destination);
        if (!relationship.destination_)
            return fail("the destination " + destination + " of " + entity.name() + "." + name + " is missing");
        if (options.inverse.empty()) continue;
        // The other end is taken as written; an end that does not exist leaves the relationship one-way.
        auto const* other = find(options.inverseEntity);
        auto const* inverse = other ? other->propertyNamed(options.inverse) : nullptr;
        if (!inverse) inverse = relationship.destination_->propertyNamed(options.inverse);
        relationship.inverse_ = inverse ? inverse->asRelationship() : nullptr;
    }
    return true;
}

void ModelAssembler::resolveConstraints(NSEntityDescription& entity) {
    std::erase_if(entity.definition_.uniquenessConstraints, [&](auto const& names) {
        return std::ranges::any_of(names, [&](auto const& name) { return !entity.propertyNamed(name); });
    });
    std::erase_if(entity.definition_.indexes, [&](auto const& index) {
        return std::ranges::any_of(index.elements, [&](auto const& element) { return !entity.propertyNamed(element.property); });
    });
    for (auto const& names : entity.definition_.uniquenessConstraints) {
        auto& constraint = entity.constraints_.emplace_back();
        for (auto const& name : names) constraint.push_back(entity.propertyNamed(name));
    }
    for (auto const& index : entity.definition_.indexes) {
        auto& resolved = entity.indexes_.emplace_back(NSFetchIndexDescription{index.name, {}});
        for (auto const& [property, ascending] : index.elements)
            resolved.elements.push_back({entity.propertyNamed(property), ascending});
    }
}

void ModelAssembler::finish(ModelDefinition definition) {
    StableHash hash;
    for (auto* entity : parentsFirst_) entity->versionHash_ = entityVersionHash(entity->definition_, entity->own_);
    for (auto const& [name, entity] : model_->entitiesByName_) hash.add(entity->versionHash_);
    model_->versionHash_ = hash.hex();
    model_->versionIdentifier_ = std::move(definition.versionIdentifier);
    model_->templates_ = std::move(definition.fetchRequestTemplates);
    model_->configurations_ = std::move(definition.configurations);
    for (auto& [name, members] : model_->configurations_)
        std::erase_if(members, [&](auto const& member) { return !find(member); });
}

} // namespace Tessarin
