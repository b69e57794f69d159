#pragma once
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"

namespace Tessarin {

/// Makes a model of a plain description: entities first, then their parents, properties and ends of relationships.
class ModelAssembler {
public:
    /// Null when the description contradicts itself; `problem()` then says where.
    Ref<NSManagedObjectModel> assemble(ModelDefinition definition);
    std::string const& problem() const noexcept { return problem_; }

private:
    bool addEntities(std::vector<EntityDefinition> definitions);
    bool linkParents();
    bool addProperties(NSEntityDescription& entity);
    bool addProperty(NSEntityDescription& entity, Ref<NSPropertyDescription> property);
    bool linkRelationships(NSEntityDescription& entity);
    void resolveConstraints(NSEntityDescription& entity);
    void finish(ModelDefinition definition);

    bool fail(std::string problem) {
        problem_ = std::move(problem);
        return false;
    }
    NSEntityDescription* find(std::string_view name) const {
        return const_cast<NSEntityDescription*>(model_->entityNamed(name)); // still being made
    }

    Ref<NSManagedObjectModel> model_;
    std::vector<NSEntityDescription*> parentsFirst_;
    std::string problem_;
};

} // namespace Tessarin
