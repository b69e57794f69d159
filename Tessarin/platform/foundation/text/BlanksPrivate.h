#pragma once
#include <algorithm>
#include <string_view>

namespace Tessarin {

/// Without the spaces, tabulators and ends of lines around it. `Text::trimming` knows those of all scripts; files and numbers
/// none but these.
inline std::string_view withoutBlanks(std::string_view text) noexcept {
    constexpr std::string_view blanks = " \t\r\n";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

} // namespace Tessarin
