#pragma once
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyTablePrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"

namespace Tessarin {

// Looks at a file that anybody may have made or changed, while it is opened. None costs more for more records.

/// Throws Refused where a view, or a virtual table, stands in place of one of the library's tables or of the model's. Other views
/// are somebody's own.
TESSARIN_API void requireNoViewInPlaceOfATable(SQLite::Connection& connection, RowSpace& space);
/// Reads both ends of each table that the file names; what is unreadable throws.
TESSARIN_API void readEndsOfTables(SQLite::Connection& connection);
/// The largest key of any record; 0 when there is none.
TESSARIN_API RecordKey largestKey(SQLite::Connection& connection, SQLiteSchema const& schema);

} // namespace Tessarin
