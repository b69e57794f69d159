#include "Tessarin/platform/foundation/predicates/SearchWords.h"

#include "Tessarin/platform/foundation/predicates/KeyPath.h"
#include "Tessarin/platform/foundation/predicates/TextFolding.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/uversion.h>

#include <algorithm>
#include <array>
#include <memory>

namespace Tessarin {
namespace {

constexpr std::size_t longestWord = 255; // bytes
constexpr auto options = TextOptions::CaseInsensitive | TextOptions::DiacriticInsensitive;

enum class Character : unsigned char { Between, Plain, Capital, Further };

constexpr auto characters = [] {
    std::array<Character, 256> kinds{};
    for (std::size_t c = 0; c < kinds.size(); ++c) {
        if (c >= 0x80) kinds[c] = Character::Further;
        if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z')) kinds[c] = Character::Plain;
        if (c >= 'A' && c <= 'Z') kinds[c] = Character::Capital;
    }
    return kinds;
}();

Character kindOf(char c) { return characters[static_cast<unsigned char>(c)]; }

std::string_view shortened(std::string_view word) {
    if (word.size() <= longestWord) return word;
    auto end = longestWord;
    while (end > 0 && (static_cast<unsigned char>(word[end]) & 0xC0) == 0x80) --end;
    return word.substr(0, end == 0 ? longestWord : end);
}

using Each = FunctionRef<bool(SearchWord const&)>;

/// A thread's own iterator over words: it is costly to make, and used by one thread at a time.
icu::BreakIterator& wordBreaks() {
    thread_local std::unique_ptr<icu::BreakIterator> const breaks = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::BreakIterator> made(icu::BreakIterator::createWordInstance(icu::Locale::getRoot(), status));
        if (U_FAILURE(status) || !made) fatal("the rules of ICU for words cannot be read");
        return made;
    }();
    return *breaks;
}

/// What the letters of two bytes become, Latin, Greek and Cyrillic among them. Empty for what has to be looked at with its neighbours,
/// or makes no word by itself.
class ShortLetters {
public:
    ShortLetters() {
        for (UChar32 letter = first; letter < end; ++letter) {
            if (u_getIntPropertyValue(letter, UCHAR_WORD_BREAK) != U_WB_ALETTER || u_getCombiningClass(letter) != 0) continue;
            char const bytes[] = {static_cast<char>(0xC0 | letter >> 6), static_cast<char>(0x80 | (letter & 0x3F))};
            auto const folded = foldedText({bytes, 2}, options);
            if (folded.size() > 3) continue;
            auto& entry = entries_[static_cast<std::size_t>(letter - first)];
            entry[0] = static_cast<char>(folded.size());
            std::ranges::copy(folded, entry.begin() + 1);
        }
    }
    std::string_view folded(char lead, char next) const {
        auto const letter = (static_cast<unsigned char>(lead) & 0x1FU) << 6 | (static_cast<unsigned char>(next) & 0x3FU);
        bool const isOne = (static_cast<unsigned char>(lead) & 0xE0) == 0xC0 && (static_cast<unsigned char>(next) & 0xC0) == 0x80;
        if (!isOne || letter < first || letter >= end) return {};
        auto const& entry = entries_[letter - first];
        return {entry.data() + 1, static_cast<std::size_t>(entry[0])};
    }

private:
    static constexpr UChar32 first = 0xC0, end = 0x530;
    std::array<std::array<char, 4>, end - first> entries_{};
};

/// A word of ASCII and such letters, folded without a look at Unicode's rules: a quarter of the time. Empty for any other.
std::string_view foldedShort(std::string_view word, std::span<char> into) {
    static ShortLetters const letters;
    std::size_t size = 0;
    for (std::size_t at = 0; at < word.size(); ++at) {
        if (kindOf(word[at]) != Character::Further) {
            into[size++] = kindOf(word[at]) == Character::Capital ? static_cast<char>(word[at] | ' ') : word[at];
            continue;
        }
        auto const folded = at + 1 < word.size() ? letters.folded(word[at], word[at + 1]) : std::string_view();
        if (folded.empty()) return {};
        size = static_cast<std::size_t>(std::ranges::copy(folded, into.begin() + static_cast<std::ptrdiff_t>(size)).out -
                                        into.begin());
        ++at;
    }
    return {into.data(), size};
}

/// Letters and digits with some among them that are not ASCII.
bool takeUnicode(std::string_view text, std::size_t begin, std::size_t end, Each each) {
    UErrorCode status = U_ZERO_ERROR;
    UText piece = UTEXT_INITIALIZER;
    utext_openUTF8(&piece, text.data() + begin, static_cast<std::int64_t>(end - begin), &status);
    auto& breaks = wordBreaks();
    breaks.setText(&piece, status);
    bool goesOn = U_SUCCESS(status);
    for (auto from = breaks.first(), to = breaks.next(); goesOn && to != icu::BreakIterator::DONE;
         from = to, to = breaks.next()) {
        if (breaks.getRuleStatus() < UBRK_WORD_NONE_LIMIT) continue; // punctuation, pictures
        auto const first = begin + static_cast<std::size_t>(from), last = begin + static_cast<std::size_t>(to);
        auto const folded = foldedText(shortened(text.substr(first, last - first)), options);
        if (!folded.empty()) goesOn = each({shortened(folded), first, last});
    }
    utext_close(&piece);
    return goesOn;
}

} // namespace

void forEachSearchWord(std::string_view text, Each each) {
    std::array<char, longestWord> lowered;
    for (std::size_t at = 0; at < text.size();) {
        if (kindOf(text[at]) == Character::Between) {
            ++at;
            continue;
        }
        auto const begin = at;
        bool hasCapitals = false, hasFurther = false;
        for (; at < text.size(); ++at) {
            auto const kind = kindOf(text[at]);
            if (kind == Character::Between) break;
            hasCapitals |= kind == Character::Capital;
            hasFurther |= kind == Character::Further;
        }
        if (hasFurther) {
            auto const word = text.substr(begin, at - begin);
            if (auto const folded = word.size() <= 80 ? foldedShort(word, lowered) : std::string_view(); !folded.empty()) {
                if (!each({folded, begin, at})) return;
                continue;
            }
            if (!takeUnicode(text, begin, at, each)) return;
            continue;
        }
        auto word = text.substr(begin, std::min(at - begin, longestWord));
        if (hasCapitals) {
            std::ranges::transform(word, lowered.begin(),
                                   [](char c) { return kindOf(c) == Character::Capital ? static_cast<char>(c | ' ') : c; });
            word = {lowered.data(), word.size()};
        }
        if (!each({word, begin, at})) return;
    }
}

std::string const& searchWordsVersion() {
    static std::string const version = std::string("1 ICU " U_ICU_VERSION " Unicode ") + U_UNICODE_VERSION + " " + [] {
        UVersionInfo running;
        u_getVersion(running);
        char text[U_MAX_VERSION_STRING_LENGTH];
        u_versionToString(running, text);
        return std::string(text);
    }();
    return version;
}

SearchQuery::SearchQuery(std::string_view text) {
    forEachSearchWord(text, [&](SearchWord const& word) {
        words_.emplace_back(word.folded);
        return true;
    });
    if (words_.empty()) return;
    auto last = std::move(words_.back());
    words_.pop_back();
    std::ranges::sort(words_);
    auto const repeated = std::ranges::unique(words_);
    words_.erase(repeated.begin(), repeated.end());
    words_.push_back(std::move(last));
}

void SearchQuery::forEachMatch(std::string_view folded, FunctionRef<void(std::size_t index)> each) const {
    if (words_.empty()) return;
    auto const whole = std::span(words_).first(words_.size() - 1);
    auto const found =
        std::ranges::lower_bound(whole, folded, {}, [](std::string const& word) { return std::string_view(word); });
    if (found != whole.end() && *found == folded) each(static_cast<std::size_t>(found - whole.begin()));
    if (folded.starts_with(words_.back())) each(words_.size() - 1);
}

bool SearchQuery::isFoundIn(std::span<std::string_view const> texts) const {
    if (texts.empty() || words_.empty()) return !texts.empty();
    std::vector<bool> found(words_.size());
    auto missing = words_.size();
    for (auto const text : texts)
        forEachSearchWord(text, [&](SearchWord const& word) {
            forEachMatch(word.folded, [&](std::size_t index) {
                if (!found[index]) found[index] = true, --missing;
            });
            return missing != 0;
        });
    return missing == 0;
}

std::size_t SearchQuery::countIn(std::string_view text, std::span<std::size_t> counts) const {
    std::size_t all = 0;
    forEachSearchWord(text, [&](SearchWord const& word) {
        ++all;
        forEachMatch(word.folded, [&](std::size_t index) { ++counts[index]; });
        return true;
    });
    return all;
}

bool isFoundIn(SearchQuery const& query, Value const& texts) {
    std::vector<std::string_view> parts;
    if (texts.isText()) parts.push_back(texts.text());
    if (texts.kind() == Value::Kind::List || texts.kind() == Value::Kind::Set)
        forEachMember(texts, [&](Value const& member) {
            if (member.isText()) parts.push_back(member.text());
            return true;
        });
    return query.isFoundIn(parts);
}

} // namespace Tessarin
