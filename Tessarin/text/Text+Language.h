#pragma once
#include "Tessarin/Export.h"
#include <compare>
#include <string>
#include <string_view>

namespace Tessarin {

class Text;
enum class TextOptions : unsigned; // Tessarin/platform/foundation/predicates/TextFolding.h

/// Unicode's normal forms: composed or decomposed; the K ones also give up what only looks different ("ﬁ" becomes "fi").
enum class NormalForm { C, D, KC, KD };

/// What depends on Unicode's tables and on the user's language. Bytes that are not UTF-8 stay as they are; what cannot be done
/// (no memory, 1 GB and more) leaves the text unchanged. The language of order and search is LC_ALL, else LC_COLLATE, else LANG;
/// that of capital letters LC_ALL, else LC_CTYPE, else LANG.
///
///     Text::folded("ÉTÉ", TextOptions::CaseInsensitive | TextOptions::DiacriticInsensitive); // "ete"
///     Text::capitalized("istanbul", "tr");                                                   // "İstanbul"
///     Text::compareNaturally("file 9", "file 10") < 0;                                       // true
class TESSARIN_API TextLanguage {
    friend class Text; // only Text can carry this room
    TextLanguage() = default;

public:
    static std::string normalized(std::string_view text, NormalForm form = NormalForm::C);
    /// The form in which texts that differ in case only are the same bytes; or in what `options` overlook.
    static std::string folded(std::string_view text);
    static std::string folded(std::string_view text, TextOptions options);
    /// With a capital letter at the beginning of each word and small ones behind, as the locale ("tr", "nl_NL") has it; the
    /// user's where none is named.
    static std::string capitalized(std::string_view text, std::string_view locale = {});
    /// Whether a reader who searches for `part` would say that it is there: case and accents do not count unless they make
    /// another letter in the user's language. An empty part is in every text.
    static bool containsLocalized(std::string_view text, std::string_view part);
    /// The order that people expect of names: by the user's language, digits by the number that they write.
    static std::weak_ordering compareNaturally(std::string_view a, std::string_view b);

protected:
    ~TextLanguage() = default;
};

} // namespace Tessarin
