#pragma once
#include "Tessarin/Export.h"
#include <array>
#include <string>
#include <string_view>

namespace Tessarin {

/// What a comparison of texts overlooks; written [c], [d], [cd], [n] in a predicate.
enum class TextOptions : unsigned { None = 0, CaseInsensitive = 1, DiacriticInsensitive = 2, Normalized = 4 };
constexpr TextOptions operator|(TextOptions a, TextOptions b) {
    return static_cast<TextOptions>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}
constexpr bool has(TextOptions all, TextOptions one) { return (static_cast<unsigned>(all) & static_cast<unsigned>(one)) != 0; }

/// The form of a text in which those that differ only in what `options` overlook are the same bytes: case folded, combining
/// marks taken off, composed. Predicates compare, and queries order and search, by this form. Any thread.
TESSARIN_API std::string foldedText(std::string_view text, TextOptions options);

/// Whether every byte of it is below 128.
TESSARIN_API bool isASCII(std::string_view text) noexcept;
/// The count of code points of a UTF-8 text; a stray byte counts as none.
TESSARIN_API std::size_t codePointCount(std::string_view text) noexcept;

/// A folded text for one comparison: short ASCII texts are folded in place, without an allocation.
class TESSARIN_API FoldedText {
public:
    FoldedText(std::string_view text, TextOptions options);
    FoldedText(FoldedText const&) = delete;
    FoldedText& operator=(FoldedText const&) = delete;
    std::string_view view() const noexcept { return view_; }

private:
    std::array<char, 120> small_;
    std::string large_;
    std::string_view view_;
};

} // namespace Tessarin
