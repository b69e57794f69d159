#pragma once
#include "Tessarin/Export.h"
#include <string>
#include <string_view>

namespace Tessarin {

/// `text` as it stands inside of something else: in quotation marks and on one line, so that one sees where it begins and ends.
/// Quotation marks and backslashes are escaped; control characters and line separators read "\n", "\r", "\t", "\u001B"; a byte
/// that is not UTF-8 reads "\xC3".
TESSARIN_API std::string quotedText(std::string_view text);
TESSARIN_API void appendQuotedText(std::string& line, std::string_view text);

} // namespace Tessarin
