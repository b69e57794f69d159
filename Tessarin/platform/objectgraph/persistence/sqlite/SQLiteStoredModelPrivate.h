#pragma once
#include "Tessarin/platform/objectgraph/persistence/migration/StoredModelPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowCachePrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <optional>

namespace Tessarin {

inline constexpr std::int64_t storeApplicationID = 0x54657373; // "Tess"
inline constexpr std::int64_t storeFormatVersion = 2; // 1 had no history

/// Makes an empty file a store without records, within a transaction of the caller. Its metadata is `metadata`, with what every
/// store's holds: a new identity unless that is given.
void createStoreTables(SQLite::Connection& connection, RowSpace& space, std::vector<std::int64_t> const& numbers,
                       Dictionary metadata);
/// The hashes of a model's entities by name, as they stand in a store's metadata.
Dictionary modelHashes(NSManagedObjectModel const& model);
/// Writes what the file remembers of its model, within a transaction of the caller.
void writeStoredModel(SQLite::Connection& connection, RowSpace& space, std::vector<std::int64_t> const& numbers);
/// The numbers that the file gave to the model's entities; absent when it does not know one of them.
std::optional<std::vector<std::int64_t>> storedNumbers(SQLite::Connection& connection, NSManagedObjectModel const& model);

} // namespace Tessarin
