#pragma once
#include "Tessarin/Export.h"
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

/// The user's words for `key` in the main bundle, else the key itself. `comment` tells translators what it is about.
TESSARIN_API std::string NSLocalizedString(std::string_view key, std::string_view comment);

/// A function that translates instead of the bundles' tables, for applications that have another way: it gives the text, or
/// nothing, whereupon the tables are asked. Null takes it away. It is called on any thread.
///
///     setTextTranslator(+[](std::string_view key, std::string_view comment) { return fromCatalogue(key, comment); });
using TextTranslator = std::optional<std::string> (*)(std::string_view key, std::string_view comment);
TESSARIN_API void setTextTranslator(TextTranslator translator);

} // namespace Tessarin
