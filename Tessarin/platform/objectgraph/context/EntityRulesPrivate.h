#pragma once
#include "Tessarin/platform/objectgraph/model/NSAttributeDescription.h"
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/model/NSRelationshipDescription.h"
#include <memory>
#include <vector>

namespace Tessarin {

/// What a context needs to know of an entity again and again, found once: which properties can fail a save, which have
/// defaults.
struct EntityRules {
    std::vector<NSAttributeDescription const*> checkedAttributes;
    std::vector<NSRelationshipDescription const*> checkedRelationships;
    std::vector<NSAttributeDescription const*> defaults;

    explicit EntityRules(NSEntityDescription const& entity);
};

class EntityRulesTable {
public:
    EntityRules const& of(NSEntityDescription const& entity) {
        if (rules_.empty()) rules_.resize(entity.managedObjectModel()->entities().size());
        auto& rules = rules_[entity.index()];
        if (!rules) rules = std::make_unique<EntityRules>(entity);
        return *rules;
    }

private:
    std::vector<std::unique_ptr<EntityRules>> rules_; // by entity index, made on first use
};

} // namespace Tessarin
