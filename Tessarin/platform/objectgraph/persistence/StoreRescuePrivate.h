#pragma once
#include "Tessarin/Export.h"
#include <string>

namespace Tessarin {

/// Keeps what is in a store's file that is about to be refused, since the store's owner may remove its folder: links (or
/// copies) of the file and its log in a folder of their own within `.FOLDER.rescued/` beside the file's folder. The newest
/// three are kept; a file that the newest holds already is not kept twice. Throws ErrorException when that is impossible.
TESSARIN_API void rescueStore(std::string const& path);

} // namespace Tessarin
