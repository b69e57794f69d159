#pragma once
#include "Tessarin/Export.h"

struct sqlite3;

namespace Tessarin::SQLite {

/// Makes known to a connection's FTS5 how texts become words here: the tokenizer `tessarin`. A text that is indexed is taken apart
/// by `forEachSearchWord`; each text in quotes of a query is one word as it stands, so that `"word"` in a query must come from a
/// `SearchQuery`. Adds `tessarin_totals(TABLE)`, too: "RECORDS WORDS" of an index. False where SQLite was built without FTS5.
TESSARIN_API bool addWordTokenizer(sqlite3* connection) noexcept;

} // namespace Tessarin::SQLite
