#pragma once
#include "Tessarin/Export.h"
#include <cstdint>
#include <string>

namespace Tessarin {

/// Whether the log of a database file holds commits behind the `readable` pages that SQLite can make out, so that something that
/// was saved cannot be read. `pageSize` 0: as the log itself says. False where there is no log, and for commits that were never
/// finished.
TESSARIN_API bool hasUnreadableCommits(std::string const& databasePath, std::uint32_t readable, std::uint32_t pageSize);

} // namespace Tessarin
