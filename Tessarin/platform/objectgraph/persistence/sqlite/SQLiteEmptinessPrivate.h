#pragma once
#include "Tessarin/platform/sqlite/Connection.h"
#include <string>

namespace Tessarin {

/// Where each part of the schema begins, its type and name: one statement for all who look through it while a file is opened.
inline constexpr char const* wholeSchema = "SELECT +rootpage, +type, +name FROM sqlite_schema";
/// Whether nothing was ever made in the database.
bool hasNoSchema(SQLite::Connection& connection);
/// Whether it is certain that nothing was ever saved there, or nothing is left of it.
bool holdsNothing(SQLite::Connection& connection, std::string const& path);
/// The same of a file that nobody has open.
bool holdsNothing(std::string const& path);

} // namespace Tessarin
