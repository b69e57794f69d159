#include "Tessarin/platform/foundation/text/LanguagePrivate.h"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/coll.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>
#include <unicode/usearch.h>
#include <unicode/utf8.h>

#include <cstdlib>

namespace Tessarin::language {
namespace {

constexpr std::size_t longest = INT32_MAX / 2; // ICU counts in 32 bits, and results may grow

icu::StringPiece piece(std::string_view text) { return {text.data(), static_cast<std::int32_t>(text.size())}; }

icu::Normalizer2 const* normalizer(bool isCompatible, bool isComposed, UErrorCode& status) {
    if (isCompatible) return isComposed ? icu::Normalizer2::getNFKCInstance(status) : icu::Normalizer2::getNFKDInstance(status);
    return isComposed ? icu::Normalizer2::getNFCInstance(status) : icu::Normalizer2::getNFDInstance(status);
}

/// The bytes that a text begins with and that are UTF-8.
std::size_t wellFormedLength(std::string_view text) {
    auto const* const bytes = reinterpret_cast<std::uint8_t const*>(text.data());
    for (std::size_t at = 0; at < text.size();) {
        auto const from = at;
        UChar32 character = 0;
        U8_NEXT(bytes, at, text.size(), character);
        if (character < 0) return from;
    }
    return text.size();
}

std::unique_ptr<icu::Collator> madeRules(icu::Locale const& locale) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> rules{icu::Collator::createInstance(locale, status)};
    if (U_FAILURE(status)) return nullptr;
    rules->setStrength(icu::Collator::PRIMARY);
    return rules;
}

/// Overlooks case and accents. Kept for the thread, until the user's language is another.
icu::Collator const* searchRules() {
    thread_local std::unique_ptr<icu::Collator> rules;
    thread_local std::string rulesLocale = "none yet";
    if (auto locale = localeOf("LC_COLLATE"); locale != rulesLocale) {
        rules = madeRules(icu::Locale{locale.c_str()});
        if (!rules) rules = madeRules(icu::Locale::getRoot()); // a name that ICU takes for none of a locale
        rulesLocale = std::move(locale);
    }
    return rules.get();
}

} // namespace

std::string localeOf(char const* category) {
    for (auto const* variable : {"LC_ALL", category, "LANG"})
        if (auto const* name = std::getenv(variable); name && *name) {
            auto const text = std::string_view{name}.substr(0, std::string_view{name}.find_first_of(".@"));
            return text == "C" || text == "POSIX" ? std::string{} : std::string{text};
        }
    return {};
}

std::string eachWellFormed(std::string_view text, FunctionRef<std::string(std::string_view)> changed) {
    auto const whole = wellFormedLength(text);
    if (whole == text.size()) return text.size() > longest ? std::string{text} : changed(text);
    std::string result;
    for (auto size = whole; !text.empty(); size = wellFormedLength(text)) {
        if (size > longest)
            result += text.substr(0, size);
        else if (size > 0)
            result += changed(text.substr(0, size));
        text.remove_prefix(size);
        result += text.substr(0, 1);
        if (!text.empty()) text.remove_prefix(1);
    }
    return result;
}

std::string normalized(std::string_view text, bool isCompatible, bool isComposed) {
    UErrorCode status = U_ZERO_ERROR;
    auto const* const form = normalizer(isCompatible, isComposed, status);
    if (U_FAILURE(status)) return std::string{text};
    std::string result;
    icu::StringByteSink<std::string> sink(&result, static_cast<std::int32_t>(text.size()));
    form->normalizeUTF8(0, piece(text), sink, nullptr, status);
    return U_FAILURE(status) ? std::string{text} : result;
}

std::string capitalized(std::string_view text, std::string const& locale) {
    UErrorCode status = U_ZERO_ERROR;
    std::string result;
    icu::StringByteSink<std::string> sink(&result, static_cast<std::int32_t>(text.size()));
    icu::CaseMap::utf8ToTitle(locale.c_str(), 0, nullptr, piece(text), sink, nullptr, status);
    return U_FAILURE(status) ? std::string{text} : result;
}

bool contains(std::string_view text, std::string_view part) {
    auto const* const rules = searchRules();
    if (!rules || part.empty() || text.size() > longest || part.size() > longest) return text.find(part) != text.npos;
    auto const where = icu::UnicodeString::fromUTF8(piece(text)), what = icu::UnicodeString::fromUTF8(piece(part));
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UStringSearch, decltype(&usearch_close)> const search{
        usearch_openFromCollator(what.getBuffer(), what.length(), where.getBuffer(), where.length(), rules->toUCollator(),
                                 nullptr, &status),
        usearch_close};
    return U_SUCCESS(status) && usearch_first(search.get(), &status) != USEARCH_DONE && U_SUCCESS(status);
}

} // namespace Tessarin::language
