#include "Tessarin/platform/foundation/time/UserLanguagePrivate.h"

#include <fmt/format.h>
#include <unicode/calendar.h>
#include <unicode/locid.h>
#include <unicode/ures.h>

#include <algorithm>
#include <cstdlib>

namespace Tessarin {
namespace {

constexpr char const* plain = "en_US_POSIX";

std::string_view variable(char const* name) {
    auto const* const text = std::getenv(name);
    return text ? text : std::string_view{};
}

/// The first of them that says something.
std::string_view wish(std::initializer_list<char const*> names) {
    for (auto const* const name : names)
        if (auto const text = variable(name); !text.empty()) return text;
    return {};
}
std::string_view dateWish() { return wish({"LC_ALL", "LC_TIME", "LANG"}); }
std::string_view textWish() { return wish({"LC_ALL", "LC_MESSAGES", "LANG"}); }

/// "sr_RS" of "sr_RS.UTF-8@latin"
std::string_view withoutModifier(std::string_view text) { return text.substr(0, text.find_first_of(".@")); }
bool isC(std::string_view text) {
    auto const base = withoutModifier(text);
    return base.empty() || base == "C" || base == "POSIX";
}

/// "de_DE.UTF-8@euro" is de_DE; two modifiers name a script, and "@calendar=buddhist" is understood as it stands.
std::string icuName(std::string_view text) {
    std::string base{withoutModifier(text)};
    auto const at = text.find('@');
    auto const modifier = at == text.npos ? std::string_view{} : text.substr(at + 1);
    auto const country = std::min(base.find('_'), base.size());
    if (modifier == "latin") base.insert(country, "_Latn");
    if (modifier == "cyrillic") base.insert(country, "_Cyrl");
    return modifier.find('=') == modifier.npos ? base : fmt::format("{}@{}", base, modifier);
}

/// Whether ICU has data for the language; it would silently take those of another one.
bool isKnown(std::string const& locale) {
    UErrorCode status = U_ZERO_ERROR;
    ures_close(ures_open(nullptr, locale.c_str(), &status));
    return U_SUCCESS(status) && status != U_USING_DEFAULT_WARNING;
}

/// "zh-Hans" of zh_CN: the language with the script that it has there. Empty where ICU does not know.
std::string withScript(std::string_view wish) {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale locale(icuName(wish).c_str());
    locale.addLikelySubtags(status);
    return U_FAILURE(status) || !*locale.getScript() ? std::string{}
                                                     : fmt::format("{}-{}", locale.getLanguage(), locale.getScript());
}

} // namespace

std::string localeWishes() { return std::string{dateWish()}; }
std::string languageWishes() { return fmt::format("{} {}", textWish(), variable("LANGUAGE")); }

std::string userLocale() {
    if (isC(dateWish())) return plain;
    auto locale = icu::Locale::createCanonical(icuName(dateWish()).c_str());
    return locale.isBogus() || !isKnown(locale.getName()) ? plain : locale.getName();
}

std::string calendarOfLocale(std::string const& locale) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Calendar> const calendar{icu::Calendar::createInstance(icu::Locale(locale.c_str()), status)};
    return U_SUCCESS(status) ? calendar->getType() : "gregorian";
}

std::vector<std::string> userLanguages() {
    std::vector<std::string> languages;
    if (isC(textWish())) return languages; // then LANGUAGE does not count either
    auto wishes = variable("LANGUAGE").empty() ? textWish() : variable("LANGUAGE");
    while (!wishes.empty()) {
        auto const wish = wishes.substr(0, wishes.find(':'));
        std::string posix{withoutModifier(wish)};
        wishes.remove_prefix(std::min(wishes.find(':'), wishes.size() - 1) + 1);
        if (isC(posix)) continue;
        auto hyphened = posix;
        std::ranges::replace(hyphened, '_', '-');
        languages.push_back(hyphened);
        if (hyphened != posix) languages.push_back(posix);
        if (auto script = withScript(wish); !script.empty()) languages.push_back(std::move(script));
        if (hyphened != posix) languages.push_back(posix.substr(0, posix.find('_')));
    }
    return languages;
}

} // namespace Tessarin
