#pragma once
#include "Tessarin/Export.h"
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

class Text;

/// Characters as readers count them: grapheme clusters of Unicode, as ICU finds them. A flag, a letter with its accents and
/// "\r\n" are one each. Bytes that are not UTF-8 count one each, and join nothing. Any text will do, `Text` or not.
///
/// An index costs its distance from the beginning, a negative one the whole text: who walks a long text by index makes a
/// `TextIndex` of it.
///
///     Text::length("naïve 👩‍🚀");     // 7
///     Text::at("naïve", -1);          // "e"
///     Text::sub("naïve", 1, 3);       // "aï"
class TESSARIN_API TextCharacters {
    friend class Text; // only Text can carry this room
    TextCharacters() = default;

public:
    static std::size_t length(std::string_view text) noexcept;
    /// The character of that index, counted from the end when it is negative: -1 is the last. Absent out of range.
    static std::optional<std::string> at(std::string_view text, std::ptrdiff_t index);
    /// The characters from `from` on, up to `to` and without it. Negative ones count from the end; what is out of range stops at
    /// the ends; empty when nothing is between.
    static std::string sub(std::string_view text, std::ptrdiff_t from, std::ptrdiff_t to = PTRDIFF_MAX);

protected:
    ~TextCharacters() = default;
};

} // namespace Tessarin
