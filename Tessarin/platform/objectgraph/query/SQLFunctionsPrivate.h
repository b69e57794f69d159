#pragma once
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/sqlite/Connection.h"

namespace Tessarin {

/// Makes known to a connection what translated queries use, all of it the same code that predicates and sort descriptors use
/// in memory: `tessarin_text(column, folded text, operator, options)`, `tessarin_fold(text, options)`,
/// `tessarin_matches(text, pattern, options)`, `tessarin_finds(words, texts…)`, and collations for decimals and for each way of
/// comparing texts.
TESSARIN_API void registerSQLFunctions(SQLite::Connection& connection);

inline constexpr char const* decimalCollation = "tessarin_decimal";
/// The collation that orders texts so; empty for the order of bytes.
std::string collationFor(TextComparison comparison);

} // namespace Tessarin
