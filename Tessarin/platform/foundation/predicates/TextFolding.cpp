#include "Tessarin/platform/foundation/predicates/TextFolding.h"

#include "Tessarin/platform/runtime/Fatal.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstring>

namespace Tessarin {
namespace {

struct Normalizers {
    icu::Normalizer2 const* composing = nullptr;
    icu::Normalizer2 const* decomposing = nullptr;
    Normalizers() {
        UErrorCode status = U_ZERO_ERROR;
        composing = icu::Normalizer2::getNFCInstance(status);
        decomposing = icu::Normalizer2::getNFDInstance(status);
        if (U_FAILURE(status)) fatal("the Unicode data of ICU cannot be read");
    }
};

Normalizers const& normalizers() {
    static Normalizers const shared;
    return shared;
}

char lowered(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A')) : character;
}

/// Marks above, below and through a letter, vowel points included. Nukta, voicing marks and virama (classes 7 to 9) stay:
/// they make another letter.
bool isDiacritic(UChar32 character) {
    auto const combiningClass = u_getCombiningClass(character);
    return combiningClass > 9 || combiningClass == 1;
}

icu::UnicodeString withoutDiacritics(icu::UnicodeString const& decomposed) {
    icu::UnicodeString kept;
    for (std::int32_t at = 0; at < decomposed.length(); at = decomposed.moveIndex32(at, 1))
        if (auto const character = decomposed.char32At(at); !isDiacritic(character)) kept.append(character);
    return kept;
}

std::string foldedBeyondASCII(std::string_view text, TextOptions options) {
    UErrorCode status = U_ZERO_ERROR;
    auto folded = icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())});
    if (has(options, TextOptions::CaseInsensitive)) {
        folded = normalizers().decomposing->normalize(folded, status); // some letters fold only when taken apart
        folded.foldCase();
    }
    if (has(options, TextOptions::DiacriticInsensitive))
        folded = withoutDiacritics(normalizers().decomposing->normalize(folded, status));
    folded = normalizers().composing->normalize(folded, status);
    if (U_FAILURE(status)) return std::string{text}; // out of memory only
    std::string result;
    return folded.toUTF8String(result);
}

} // namespace

bool isASCII(std::string_view text) noexcept {
    std::uint64_t all = 0;
    std::size_t at = 0;
    for (; at + 8 <= text.size(); at += 8) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, text.data() + at, 8);
        all |= eight;
    }
    for (; at < text.size(); ++at) all |= static_cast<std::uint64_t>(static_cast<unsigned char>(text[at]));
    return (all & 0x8080808080808080U) == 0;
}

std::size_t codePointCount(std::string_view text) noexcept {
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string foldedText(std::string_view text, TextOptions options) {
    if (options == TextOptions::None) return std::string{text};
    if (!isASCII(text)) return foldedBeyondASCII(text, options);
    std::string result{text};
    if (has(options, TextOptions::CaseInsensitive)) std::ranges::transform(result, result.begin(), lowered);
    return result;
}

FoldedText::FoldedText(std::string_view text, TextOptions options) : view_(text) {
    if (options == TextOptions::None) return;
    if (text.size() > small_.size() || !isASCII(text)) {
        large_ = foldedText(text, options);
        view_ = large_;
    } else if (has(options, TextOptions::CaseInsensitive)) {
        std::ranges::transform(text, small_.begin(), lowered);
        view_ = {small_.data(), text.size()};
    }
}

} // namespace Tessarin
