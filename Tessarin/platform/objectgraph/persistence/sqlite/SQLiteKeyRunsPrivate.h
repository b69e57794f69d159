#pragma once
#include "Tessarin/platform/objectgraph/persistence/stores/KeyTablePrivate.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <span>

namespace Tessarin {

/// Runs `sql`, which ends in a column's name ("DELETE FROM book WHERE id"), for all of these keys: runs of neighbours as a
/// range, the others in lists of a fixed size, so that few statements are prepared. The keys must be sorted.
TESSARIN_API void runForKeys(SQLite::Connection& connection, std::string const& sql, std::span<RecordKey const> keys);
/// The same for a statement with rows: `each` steps through those of one run or list.
TESSARIN_API void forKeys(SQLite::Connection& connection, std::string const& sql, std::span<RecordKey const> keys,
                          FunctionRef<void(SQLite::Statement&)> each);

} // namespace Tessarin
