#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"

#include "Tessarin/platform/objectgraph/model/ModelAssemblerPrivate.h"
#include "Tessarin/platform/objectgraph/model/ModelNamesPrivate.h"

#include <algorithm>
#include <map>

namespace Tessarin {

Ref<NSManagedObjectModel> NSManagedObjectModel::modelWithDefinition(ModelDefinition definition, std::string* problem) {
    if (auto unusable = problemWithNames(definition); !unusable.empty()) {
        if (problem) *problem = std::move(unusable);
        return nullptr;
    }
    ModelAssembler assembler;
    auto model = assembler.assemble(std::move(definition));
    if (!model && problem) *problem = assembler.problem();
    return model;
}

std::vector<std::string> NSManagedObjectModel::configurations() const {
    std::vector<std::string> names;
    for (auto const& [name, members] : configurations_) names.push_back(name);
    return names;
}

std::vector<NSEntityDescription const*>
NSManagedObjectModel::entitiesForConfiguration(std::optional<std::string_view> configuration) const {
    std::vector<NSEntityDescription const*> result;
    if (!configuration) {
        for (auto const& entity : entities_) result.push_back(entity.get());
    } else if (auto const found = configurations_.find(*configuration); found != configurations_.end()) {
        for (auto const& name : found->second) result.push_back(entityNamed(name));
    }
    return result;
}

FetchRequestTemplate const* NSManagedObjectModel::fetchRequestTemplateNamed(std::string_view name) const noexcept {
    auto const found = std::ranges::find(templates_, name, &FetchRequestTemplate::name);
    return found == templates_.end() ? nullptr : &*found;
}

std::map<std::string, std::string> NSManagedObjectModel::entityVersionHashesByName() const {
    std::map<std::string, std::string> hashes;
    for (auto const& entity : entities_) hashes.emplace(entity->name(), entity->versionHash());
    return hashes;
}

ModelDefinition NSManagedObjectModel::definition() const {
    ModelDefinition definition{versionIdentifier_, {}, configurations_, templates_};
    for (auto const& entity : entities_) definition.entities.push_back(entity->definition());
    return definition;
}

std::string NSManagedObjectModel::description() const {
    std::string text = "model " + versionIdentifier_ + (versionIdentifier_.empty() ? "{" : " {");
    for (auto const& entity : entities_) text += (entity->index() ? ", " : "") + entity->name();
    return text + "}";
}

std::span<FetchRequestTemplate const> NSManagedObjectModel::fetchRequestTemplates() const noexcept { return templates_; }

} // namespace Tessarin
