#pragma once
#include "Tessarin/Export.h"
#include <string>
#include <vector>

/// How this library was built. Any thread.
namespace Tessarin::Gestalt {

/// "0.1.0".
TESSARIN_API std::string libraryVersion();
/// "GCC 12.2.0" or "Clang 16.0.6".
TESSARIN_API std::string compiler();
/// Whether `assert` checks.
TESSARIN_API bool isDebugBuild();
/// "address", "thread", "undefined", those that the compiler tells of; none in what users get.
TESSARIN_API std::vector<std::string> sanitizers();

} // namespace Tessarin::Gestalt
