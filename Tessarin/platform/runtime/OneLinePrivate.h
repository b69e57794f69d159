#pragma once
#include "Tessarin/Export.h"
#include <string>
#include <string_view>

namespace Tessarin {

/// `text` with its control characters and line separators written as in a string literal: "\n", "\r", "\t", "\u001B",
/// "\u2028". Everything else stays as it is, backslashes too: it is for people to read, not to be read back.
TESSARIN_API std::string asOneLine(std::string_view text);

/// Prints exactly one line, whatever `text` holds.
TESSARIN_API void printLine(std::string_view text);

} // namespace Tessarin
