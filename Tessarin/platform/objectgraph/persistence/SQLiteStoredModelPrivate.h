#pragma once
#include "Tessarin/platform/objectgraph/persistence/RowCache.h"
#include "Tessarin/platform/objectgraph/persistence/StoredModel.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <optional>

namespace Tessarin {

/// The hashes of a model's entities by name, as they stand in a store's metadata.
Dictionary modelHashes(NSManagedObjectModel const& model);
/// Writes what the file remembers of its model, within a transaction of the caller.
void writeStoredModel(SQLite::Connection& connection, RowSpace& space, std::vector<std::int64_t> const& numbers);
/// The numbers that the file gave to the model's entities; absent when it does not know one of them.
std::optional<std::vector<std::int64_t>> storedNumbers(SQLite::Connection& connection, NSManagedObjectModel const& model);

} // namespace Tessarin
