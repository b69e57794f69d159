#pragma once
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyTablePrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <span>
#include <string>
#include <vector>

namespace Tessarin {

// Looks at a file that anybody may have made or changed, while it is opened. None costs more for more records.

/// What one pass over a file's schema tells.
struct SchemaLook {
    bool isEmpty = true;              // nothing was ever made there
    bool hasSearches = false;         // there is a table of the library's indexes of words
    std::vector<std::string> views;   // and virtual tables, in small letters
};
TESSARIN_API SchemaLook lookAtSchema(SQLite::Connection& connection);

/// Whether a connection that has read writes to a log, as this library's do, instead of keeping a journal beside the file. Where
/// there is no log, and nothing to be taken back, SQLite has no second file open.
bool hasLog(SQLite::Connection& connection);

/// What the file's first page says, as the connection's transaction sees it.
struct FileHeader {
    std::int64_t application = 0; // whose file it is
    std::int64_t format = 0;      // in the application's count
    std::int64_t pages = 0;
};
/// Behind the transaction's first read. Right from the page where that can be, which a look at the log before the transaction began
/// allows (`noteCommits`); else it takes a statement for each.
TESSARIN_API FileHeader headerOf(SQLite::Connection& connection);
/// Throws Refused where a view, or a virtual table, stands in place of one of the library's tables or of the model's. Other views
/// are somebody's own.
TESSARIN_API void requireNoViewInPlaceOfATable(SchemaLook const& look, SQLite::Connection& connection, RowSpace& space);
/// Reads the pages at both ends of tables, whose names are in quotes; what is unreadable throws. Within a read transaction.
TESSARIN_API void requireReadableEnds(SQLite::Connection& connection, std::span<std::string const> tables);
/// The largest key of any record; 0 when there is none.
TESSARIN_API RecordKey largestKey(SQLite::Connection& connection, SQLiteSchema const& schema);

} // namespace Tessarin
