#pragma once
#include "Tessarin/platform/objectgraph/persistence/RowCache.h"
#include "Tessarin/platform/objectgraph/persistence/StoredModel.h"
#include "Tessarin/platform/sqlite/Connection.h"

namespace Tessarin {

/// Brings a file from the model it was written with to that of `space`, within a write transaction of the caller, and gives
/// the numbers of the entities. Records keep their keys and versions. Throws Refused where no rule leads from the one model
/// to the other, or where the records break a uniqueness that is new.
std::vector<std::int64_t> migrate(SQLite::Connection& connection, StoredModel const& stored, RowSpace& space);

} // namespace Tessarin
