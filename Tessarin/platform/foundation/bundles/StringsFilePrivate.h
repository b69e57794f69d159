#pragma once
#include "Tessarin/platform/runtime/TextHashPrivate.h"
#include <string>
#include <string_view>
#include <unordered_map>

namespace Tessarin {

using TextTable = std::unordered_map<std::string, std::string, TextHash, std::equal_to<>>;

/// The pairs of a .strings file: "key" = "text"; with comments of both kinds between them, in UTF-8 or in UTF-16 with a mark; or
/// those of a property list. What stands before the first thing that does not fit is kept.
TextTable pairsOfStringsFile(std::string_view content);

} // namespace Tessarin
