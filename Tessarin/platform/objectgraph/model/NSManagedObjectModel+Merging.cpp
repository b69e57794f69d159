// The union of several models.
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"

#include <algorithm>

namespace Tessarin {
namespace {

/// The same in one order, so that two descriptions of one entity compare equal however they were written.
EntityDefinition sorted(EntityDefinition entity) {
    std::ranges::sort(entity.attributes, {}, &AttributeDefinition::name);
    std::ranges::sort(entity.relationships, {}, &RelationshipDefinition::name);
    std::ranges::sort(entity.uniquenessConstraints);
    std::ranges::sort(entity.indexes, {}, &IndexDefinition::name);
    return entity;
}

bool isSame(EntityDefinition const& a, EntityDefinition const& b) {
    auto const first = sorted(a), second = sorted(b);
    return first.options == second.options && first.attributes == second.attributes &&
           first.relationships == second.relationships && first.uniquenessConstraints == second.uniquenessConstraints &&
           first.indexes == second.indexes;
}

/// False when `entity` contradicts one that is there.
bool add(ModelDefinition& all, EntityDefinition entity) {
    auto const found = std::ranges::find(all.entities, entity.name, &EntityDefinition::name);
    if (found != all.entities.end()) return isSame(*found, entity);
    all.entities.push_back(std::move(entity));
    return true;
}

void addNames(std::vector<std::string>& names, std::vector<std::string> const& more) {
    for (auto const& name : more)
        if (std::ranges::find(names, name) == names.end()) names.push_back(name);
}

} // namespace

Ref<NSManagedObjectModel> NSManagedObjectModel::modelByMergingModels(std::span<Ref<NSManagedObjectModel> const> models) {
    if (models.size() == 1) return models.front();
    ModelDefinition all;
    for (auto const& model : models) {
        auto definition = model->definition();
        for (auto& entity : definition.entities)
            if (!add(all, std::move(entity))) return nullptr;
        for (auto const& [name, members] : definition.configurations) addNames(all.configurations[name], members);
        for (auto& request : definition.fetchRequestTemplates) // the first of a name stays
            if (std::ranges::find(all.fetchRequestTemplates, request.name, &FetchRequestTemplate::name) ==
                all.fetchRequestTemplates.end())
                all.fetchRequestTemplates.push_back(std::move(request));
        if (all.versionIdentifier.empty()) all.versionIdentifier = definition.versionIdentifier;
    }
    return modelWithDefinition(std::move(all));
}

} // namespace Tessarin
