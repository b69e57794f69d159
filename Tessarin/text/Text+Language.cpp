#include "Tessarin/platform/foundation/predicates/TextFolding.h"
#include "Tessarin/platform/foundation/text/LanguagePrivate.h"
#include "Tessarin/platform/runtime/Text.h"

namespace Tessarin {

std::string TextLanguage::normalized(std::string_view text, NormalForm form) {
    bool const isCompatible = form == NormalForm::KC || form == NormalForm::KD;
    bool const isComposed = form == NormalForm::C || form == NormalForm::KC;
    return language::eachWellFormed(text,
                                    [&](std::string_view run) { return language::normalized(run, isCompatible, isComposed); });
}

std::string TextLanguage::folded(std::string_view text) { return folded(text, TextOptions::CaseInsensitive); }

std::string TextLanguage::folded(std::string_view text, TextOptions options) {
    return language::eachWellFormed(text, [&](std::string_view run) { return foldedText(run, options); });
}

std::string TextLanguage::capitalized(std::string_view text, std::string_view locale) {
    auto const chosen = locale.empty() ? language::localeOf("LC_CTYPE") : std::string{locale};
    return language::eachWellFormed(text, [&](std::string_view run) { return language::capitalized(run, chosen); });
}

bool TextLanguage::containsLocalized(std::string_view text, std::string_view part) { return language::contains(text, part); }

std::weak_ordering TextLanguage::compareNaturally(std::string_view a, std::string_view b) {
    return language::compareNaturally(a, b);
}

} // namespace Tessarin
