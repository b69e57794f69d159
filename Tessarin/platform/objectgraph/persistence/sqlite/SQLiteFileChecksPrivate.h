#pragma once
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyTablePrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <string>
#include <unordered_map>

namespace Tessarin {

// Looks at a file that anybody may have made or changed, while it is opened. None costs more for more records.

/// Throws Refused where a view, or a virtual table, stands in place of one of the library's tables or of the model's. Other views
/// are somebody's own.
TESSARIN_API void requireNoViewInPlaceOfATable(SQLite::Connection& connection, RowSpace& space);
/// The largest key in each table, by the table's name in quotes.
using LargestKeys = std::unordered_map<std::string, RecordKey>;
/// Reads both ends of each table that the file names; what is unreadable throws.
TESSARIN_API LargestKeys readEndsOfTables(SQLite::Connection& connection);
/// The largest key of any record; 0 when there is none. `known`: what the same transaction has read already.
TESSARIN_API RecordKey largestKey(SQLite::Connection& connection, SQLiteSchema const& schema, LargestKeys const& known = {});

} // namespace Tessarin
