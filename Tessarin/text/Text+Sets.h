#pragma once
#include "Tessarin/Export.h"
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

class NSCharacterSet;
class Text;

/// Texts without the characters of a set. What is not removed stays byte for byte, be it UTF-8 or not.
///
///     Text::trimming("  Emma\n");                                                             // "Emma"
///     Text::split("a, b", NSCharacterSet::characterSetWithCharactersInString(", "));          // "a", "", "b"
///     Text::removingCharacters("+49 (30) 12", NSCharacterSet::decimalDigitCharacterSet().invertedSet()); // "493012"
class TESSARIN_API TextSets {
    friend class Text; // only Text can carry this room
    TextSets() = default;

public:
    static std::string removingCharacters(std::string_view text, NSCharacterSet const& in);
    /// Without those at both ends: blanks and new lines, where no set is named.
    static std::string trimming(std::string_view text);
    static std::string trimming(std::string_view text, NSCharacterSet const& in);
    /// What stands between characters of the set, empty pieces too: one more than there are separators. "\r\n" separates once.
    static std::vector<std::string> split(std::string_view text, NSCharacterSet const& in);

protected:
    ~TextSets() = default;
};

} // namespace Tessarin
