#include "Tessarin/platform/foundation/text/LanguagePrivate.h"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/coll.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>
#include <unicode/usearch.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

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

/// Rules of the user's language, kept for a thread until that is another.
class Rules {
public:
    using Adjust = void (*)(icu::Collator& rules, UErrorCode& status);
    explicit Rules(Adjust adjust) : adjust_(adjust) {}
    /// Null when there is no memory for them.
    icu::Collator const* current() {
        if (auto locale = localeOf("LC_COLLATE"); locale != locale_) {
            rules_ = made(icu::Locale{locale.c_str()});
            if (!rules_) rules_ = made(icu::Locale::getRoot()); // a name that ICU takes for none of a locale
            locale_ = std::move(locale);
        }
        return rules_.get();
    }

private:
    std::unique_ptr<icu::Collator> made(icu::Locale const& locale) const {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::Collator> rules{icu::Collator::createInstance(locale, status)};
        if (U_SUCCESS(status)) adjust_(*rules, status);
        return U_SUCCESS(status) ? std::move(rules) : nullptr;
    }

    Adjust const adjust_;
    std::unique_ptr<icu::Collator> rules_;
    std::string locale_ = "none yet";
};

/// Each byte that is not UTF-8 becomes half of a pair, one that stands for no other.
icu::UnicodeString codeUnits(std::string_view text) {
    constexpr char16_t firstOfBytes = 0xDC00;
    icu::UnicodeString result;
    for (auto size = wellFormedLength(text); !text.empty(); size = wellFormedLength(text)) {
        result += icu::UnicodeString::fromUTF8(piece(text.substr(0, size)));
        text.remove_prefix(size);
        if (text.empty()) break;
        result += static_cast<char16_t>(firstOfBytes + static_cast<unsigned char>(text.front()));
        text.remove_prefix(1);
    }
    return result;
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
    thread_local Rules overlooking([](icu::Collator& all, UErrorCode&) { all.setStrength(icu::Collator::PRIMARY); });
    auto const* const rules = overlooking.current(); // case and accents
    if (!rules || part.empty() || text.size() > longest || part.size() > longest) return text.find(part) != text.npos;
    auto const where = codeUnits(text), what = codeUnits(part);
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UStringSearch, decltype(&usearch_close)> const search{
        usearch_openFromCollator(what.getBuffer(), what.length(), where.getBuffer(), where.length(), rules->toUCollator(),
                                 nullptr, &status),
        usearch_close};
    return U_SUCCESS(status) && usearch_first(search.get(), &status) != USEARCH_DONE && U_SUCCESS(status);
}

std::strong_ordering compareNaturally(std::string_view a, std::string_view b) {
    thread_local Rules natural(
        [](icu::Collator& all, UErrorCode& status) { all.setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status); });
    auto const* const rules = natural.current();
    if (!rules || std::max(a.size(), b.size()) > longest) return a <=> b;
    UErrorCode status = U_ZERO_ERROR;
    return static_cast<int>(rules->compareUTF8(piece(a), piece(b), status)) <=> 0;
}

} // namespace Tessarin::language
