#pragma once
#include "Tessarin/platform/sqlite/Connection.h"
#include <string>

namespace Tessarin {

/// Whether nothing was ever made in the database.
bool hasNoSchema(SQLite::Connection& connection);
/// Whether it is certain that nothing was ever saved there, or nothing is left of it.
bool holdsNothing(SQLite::Connection& connection, std::string const& path);
/// The same of a file that nobody has open.
bool holdsNothing(std::string const& path);

} // namespace Tessarin
