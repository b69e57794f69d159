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
/// nothing to migrate. Throws Refused for a model beyond all measure (4 MiB of text, 10,000 entities, 200,000 properties where
/// each entity counts those that it inherits, too).
TESSARIN_API std::string storedModelText(NSManagedObjectModel const& model, std::vector<std::int64_t> const& entityNumbers);
/// Reads such a text, which anybody may have written; absent when it is none. Throws Refused as the above, before it is expanded.
TESSARIN_API std::optional<StoredModel> storedModelOfText(std::string_view text);

} // namespace Tessarin
