#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Tessarin {

class NSManagedObjectModel;

/// Properties that two records of an entity, its sub-entities included, may not have the same values of. Immutable, shared.
struct TESSARIN_API UniqueConstraint {
    NSEntityDescription const* entity = nullptr;            // that declares it
    std::vector<NSPropertyDescription const*> properties;   // stored attributes and to-ones
    std::size_t index = 0;                                  // among the constraints of the model

    /// The row's values, packed so that texts are equal where the values are; absent when one of them is: that is in nobody's
    /// way.
    std::optional<std::string> valuesOf(Row const& row) const;
    /// "Another record has the same …", in the model's words, with entity and attributes in its userInfo.
    Ref<NSError> violation(Dictionary more = {}) const;
};

/// The constraints of a model, by the entities that they bind.
class TESSARIN_API UniqueConstraints {
public:
    explicit UniqueConstraints(NSManagedObjectModel const& model);
    using List = std::vector<UniqueConstraint const*>;
    /// Those of an entity and its ancestors.
    List const& of(NSEntityDescription const& entity) const noexcept { return byEntity_[entity.index()]; }
    std::size_t count() const noexcept { return all_.size(); }

private:
    std::vector<std::unique_ptr<UniqueConstraint>> all_;
    std::vector<List> byEntity_; // by index of the entity
};

} // namespace Tessarin
