#pragma once
#include <string>
#include <string_view>

namespace Tessarin {

bool isUTF8(std::string_view text);
/// The text with U+FFFD in place of what is not UTF-8.
std::string wellFormedUTF8(std::string_view text);

} // namespace Tessarin
