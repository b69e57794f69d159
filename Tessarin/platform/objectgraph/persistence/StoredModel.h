#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include <string>
#include <vector>

namespace Tessarin {

/// What a store's file remembers of the model that its records were written with, and the numbers of its entities.
struct StoredModel {
    Ref<NSManagedObjectModel> model;
    std::vector<std::int64_t> entityNumbers; // by index of the entity
};

/// The part of a model that decides how its records are stored, and what can be inferred from it, as text. Equal texts:
/// nothing to migrate.
TESSARIN_API std::string storedModelText(NSManagedObjectModel const& model, std::vector<std::int64_t> const& entityNumbers);
/// Reads such a text; absent when it is none.
TESSARIN_API std::optional<StoredModel> storedModelOfText(std::string_view text);

} // namespace Tessarin
