#include "fuzz/campaigns/Texts.h"

#include "Tessarin/platform/foundation/predicates/TextFolding.h"
#include "Tessarin/platform/foundation/text/NSCharacterSet.h"
#include "Tessarin/platform/foundation/text/Path.h"
#include "Tessarin/text/AttributedText.h"
#include "Tessarin/text/EmailAddress.h"
#include "Tessarin/text/NumberLike.h"
#include "Tessarin/text/TextIndex.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <unicode/brkiter.h>
#include <unicode/unistr.h>
#include <unicode/utext.h>

namespace Tessarin::campaigns {
namespace {

/// What joins and what parts: accents, joiners, syllables, flags, viramas, signs that precede, ends of lines.
constexpr char32_t telling[] = {
    'a',    'B',    ' ',    '\r',   '\n',   '/',     '.',     '@',     0,       0x1F,    0x7F,    0xA9,    0xAD,    0xDF,
    0xE9,   0x130,  0x300,  0x301,  0x600,  0x903,   0x915,   0x937,   0x93C,   0x94D,   0x995,   0x9CD,   0xACD,   0xC15,
    0xC4D,  0xD4E,  0xE33,  0x1100, 0x1161, 0x11A8,  0x200B,  0x200C,  0x200D,  0x2028,  0x20E3,  0x3042,  0xAC00,  0xAC01,
    0xD7B0, 0xFB01, 0xFE0F, 0xFFFD, 0xFFFE, 0x110BD, 0x1F1E9, 0x1F1EA, 0x1F3FD, 0x1F468, 0x1F469, 0x1F680, 0xE0020, 0x10FFFF};

std::string someText(Trial& trial, std::size_t longest) {
    std::string text;
    auto const size = trial.random(longest + 1);
    bool const isIllFormed = trial.chance(0.5);
    for (std::size_t at = 0; at < size; ++at) {
        auto character =
            trial.chance(0.8) ? telling[trial.random(std::size(telling))] : static_cast<char32_t>(trial.random(0x30000));
        if (character >= 0xD800 && character < 0xE000) character = U'a';
        icu::UnicodeString(static_cast<UChar32>(character)).toUTF8String(text);
        if (isIllFormed && trial.chance(0.2)) text.resize(text.size() - trial.random(2)); // cut
        if (isIllFormed && trial.chance(0.1)) text += static_cast<char>(trial.random(256));
        if (trial.chance(0.02)) text.append(trial.random(700), 'x');
        for (auto marks = trial.chance(0.003) ? trial.random(6000) : 0; marks > 0; --marks) text += "\u0301";
    }
    return text;
}

std::vector<std::string> byICU(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    static std::unique_ptr<icu::BreakIterator> const iterator{
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status)};
    UText opened = UTEXT_INITIALIZER;
    utext_openUTF8(&opened, text.data(), static_cast<std::int64_t>(text.size()), &status);
    iterator->setText(&opened, status);
    require(U_SUCCESS(status), "ICU has no iterator: {}", u_errorName(status));
    std::vector<std::string> characters;
    auto from = iterator->first();
    for (auto to = iterator->next(); to != icu::BreakIterator::DONE; from = to, to = iterator->next())
        characters.emplace_back(text.substr(static_cast<std::size_t>(from), static_cast<std::size_t>(to - from)));
    utext_close(&opened);
    return characters;
}

/// The bytes that are UTF-8 alone, part by part, as the definition has it.
std::vector<std::pair<std::string, bool>> wellFormedParts(std::string_view text) {
    std::vector<std::pair<std::string, bool>> parts;
    auto const sizeOf = [&](std::size_t at) -> std::size_t {
        auto const byte = [&](std::size_t offset) {
            return at + offset < text.size() ? static_cast<unsigned char>(text[at + offset]) : 0U;
        };
        auto const isNext = [&](std::size_t offset, unsigned low = 0x80, unsigned high = 0xBF) {
            return byte(offset) >= low && byte(offset) <= high;
        };
        auto const lead = byte(0);
        if (lead < 0x80) return 1;
        if (lead >= 0xC2 && lead <= 0xDF) return isNext(1) ? 2 : 0;
        if (lead >= 0xE0 && lead <= 0xEF)
            return isNext(1, lead == 0xE0 ? 0xA0 : 0x80, lead == 0xED ? 0x9F : 0xBF) && isNext(2) ? 3 : 0;
        if (lead >= 0xF0 && lead <= 0xF4)
            return isNext(1, lead == 0xF0 ? 0x90 : 0x80, lead == 0xF4 ? 0x8F : 0xBF) && isNext(2) && isNext(3) ? 4 : 0;
        return 0;
    };
    for (std::size_t at = 0; at < text.size();) {
        auto const size = sizeOf(at);
        if (size == 0 || parts.empty() || !parts.back().second) parts.emplace_back("", size > 0);
        parts.back().first += text.substr(at, std::max<std::size_t>(size, 1));
        at += std::max<std::size_t>(size, 1);
    }
    return parts;
}

/// Each well-formed part by ICU, each other byte for itself.
std::vector<std::string> expectedCharacters(std::string_view text) {
    std::vector<std::string> all;
    for (auto const& [part, isUTF8] : wellFormedParts(text)) {
        if (isUTF8)
            std::ranges::move(byICU(part), std::back_inserter(all));
        else
            all.push_back(part);
    }
    return all;
}

void tryCharacters(Trial& trial, Tally& tally, std::string const& text) {
    auto const expected = expectedCharacters(text);
    TextIndex const index{text};
    require(Text::length(text) == expected.size() && index.length() == expected.size(), "{} and {} characters instead of {}",
            Text::length(text), index.length(), expected.size());
    std::size_t offset = 0;
    for (std::size_t at = 0; at < expected.size(); ++at) {
        auto const place = static_cast<std::ptrdiff_t>(at);
        require(index.at(place) == expected[at], "another character {} by index", at);
        require(index.offsetOf(at) == offset && index.indexOf(offset + expected[at].size() - 1) == at, "another place of {}", at);
        offset += expected[at].size();
        if (trial.random(expected.size()) > 5) continue;
        require(Text::at(text, place) == expected[at] &&
                    Text::at(text, place - static_cast<std::ptrdiff_t>(expected.size())) == expected[at],
                "another character {} by walking", at);
    }
    auto const bound = 2 * expected.size() + 5;
    for (int round = 0; round < 4; ++round) {
        auto const from = static_cast<std::ptrdiff_t>(trial.random(bound)) - static_cast<std::ptrdiff_t>(bound / 2);
        auto const to = static_cast<std::ptrdiff_t>(trial.random(bound)) - static_cast<std::ptrdiff_t>(bound / 2);
        std::string part;
        auto const size = static_cast<std::ptrdiff_t>(expected.size());
        for (auto at = std::max<std::ptrdiff_t>(from < 0 ? from + size : from, 0); at < std::min(to < 0 ? to + size : to, size);
             ++at)
            part += expected[static_cast<std::size_t>(at)];
        require(Text::sub(text, from, to) == part && index.sub(from, to) == part &&
                    NSAttributedString(text).sub(from, to).string() == part,
                "another part from {} to {}", from, to);
    }
    tally.add("characters", expected.size());
}

void trySets(Trial& trial, Tally& tally, std::string const& text) {
    NSCharacterSet const sets[] = {NSCharacterSet::letterCharacterSet(), NSCharacterSet::whitespaceAndNewlineCharacterSet(),
                                   NSCharacterSet::illegalCharacterSet(),
                                   NSCharacterSet::characterSetWithCharactersInString(someText(trial, 4))};
    auto set = sets[trial.random(std::size(sets))];
    if (trial.chance(0.3)) set = set.invertedSet();
    if (trial.chance(0.3)) set = set | sets[trial.random(std::size(sets))];
    auto const removed = Text::removingCharacters(text, set), others = Text::removingCharacters(text, set.invertedSet());
    require(removed.size() + others.size() == text.size(), "removed and others are not all");
    std::string joined;
    for (auto const& piece : Text::split(text, set)) joined += piece;
    require(joined == removed, "the pieces are another text than what is left");
    auto const trimmed = Text::trimming(text, set);
    auto const at = text.find(trimmed);
    require(at != text.npos, "the trimmed text is no part of the text");
    auto const first = NSCharacterSet::lengthOfFirst(trimmed);
    require(trimmed.empty() ? removed.empty() : set.lengthOfOthers(trimmed) >= first, "a member is left at the beginning");
    require(Text::removingCharacters(trimmed, set) == removed && Text::trimming(trimmed, set) == trimmed,
            "trimmed too much or too little");
    tally.add("sets");
}

icu::UnicodeString unicode(std::string_view text) {
    return icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())});
}

void tryLanguage(Trial& trial, Tally& tally, std::string const& text) {
    for (auto const form : {NormalForm::C, NormalForm::D, NormalForm::KC, NormalForm::KD}) {
        auto const once = Text::normalized(text, form);
        require(Text::normalized(once, form) == once, "a normal form has another normal form");
    }
    auto const broken = Text::removingCharacters(text, NSCharacterSet::characterSetWithCharactersInString("").invertedSet());
    require(broken.empty(), "some bytes are in no set");
    std::string strays, straysAfter;
    for (auto const& [part, isUTF8] : wellFormedParts(text))
        if (!isUTF8) strays += part;
    for (auto const& [part, isUTF8] :
         wellFormedParts(Text::capitalized(Text::folded(Text::normalized(text)), trial.chance(0.5) ? "tr" : "de")))
        if (!isUTF8) straysAfter += part;
    require(strays == straysAfter, "bytes that are not UTF-8 were lost or made");
    auto const other = someText(trial, 6);
    auto const order = Text::compareNaturally(text, other), back = Text::compareNaturally(other, text);
    require((order < 0) == (back > 0) && (order == 0) == (back == 0), "the order has two directions");
    auto const part =
        Text::sub(text, static_cast<std::ptrdiff_t>(trial.random(20)), static_cast<std::ptrdiff_t>(trial.random(30)));
    if (text.find(part) != text.npos && std::ranges::all_of(part, [](char c) { return c >= 'a' && c <= 'z'; }))
        require(Text::containsLocalized("<" + part + ">", part), "'{}' is not found in itself", part);
    static_cast<void>(Text::containsLocalized(text, other));
    static_cast<void>(isEmailAddress("a@" + text, InternationalDomains::Yes) || isEmailAddress(text));
    static_cast<void>(integerOf(text) || floatOf(text) || doubleOf(text));
    tally.add(strays.empty() ? "well-formed texts" : "ill-formed texts");
}

void tryPaths(Trial& trial, Tally& tally, std::string const& text) {
    std::string path;
    for (auto parts = trial.random(7); parts > 0; --parts)
        path +=
            std::vector<std::string>{"/", "//", "..", ".", "a", "b.c", ".d", text.substr(0, trial.random(5))}[trial.random(8)] +
            (trial.chance(0.6) ? "/" : "");
    if (path.find('\0') != path.npos) path.clear();
    auto standard = std::filesystem::path(path).lexically_normal().string();
    while (standard.size() > 1 && standard.ends_with('/')) standard.pop_back();
    require(Path::standardized(path) == standard, "'{}' is standardized to '{}' and by the standard library to '{}'", path,
            Path::standardized(path), standard);
    auto const folder = Path::deletingLastPathComponent(path), name = Path::lastPathComponent(path);
    auto const again = Path::appendingPathComponent(folder, name == "/" ? "" : name);
    require(Path::pathComponents(again) == Path::pathComponents(path), "'{}' is '{}' when put together", path, again);
    if (auto const extension = Path::pathExtension(path); !extension.empty())
        require(Path::pathComponents(Path::appendingPathExtension(Path::deletingPathExtension(path), extension)) ==
                    Path::pathComponents(path),
                "'{}' lost its extension", path);
    auto const base = trial.chance(0.5) ? "/a/b.c" : "a/../b";
    if (auto const way = Path::relativeTo(path, base))
        require(Path::standardized(Path::appendingPathComponent(base, *way)) == Path::standardized(path) || path.empty(),
                "'{}' from '{}' is '{}'", path, base, *way);
    tally.add("paths");
}

void tryAttributes(Trial& trial, Tally& tally, std::string const& text) {
    auto const size = text.size();
    NSAttributedString attributed(text);
    std::vector<std::optional<std::string>> model(size); // of each byte
    for (int round = 0; round < 5; ++round) {
        // Bounds between code points: others are moved, to where tests/text says.
        auto const at = [&](std::size_t offset) {
            while (offset < size && (static_cast<unsigned char>(text[offset]) & 0xC0) == 0x80) ++offset;
            return offset;
        };
        auto const from = at(trial.random(size + 2)), to = at(trial.random(size + 2));
        auto const family = std::to_string(trial.random(3)) + text.substr(0, 3);
        attributed.changeAttributes(from, to, [&](TextAttributes& each) { each.fontFamily = family; });
        for (auto changed = from; changed < std::min(to, size); ++changed) model[changed] = family;
    }
    std::size_t end = 0;
    for (auto const& run : attributed.runs()) {
        require(run.from == end && run.to > run.from, "a run begins at {} and not at {}", run.from, end);
        require(end == 0 || attributed.attributesAt(end - 1) != run.attributes, "neighbours with the same attributes at {}", end);
        for (; end < run.to; ++end) require(run.attributes.fontFamily == model[end], "other attributes at {}", end);
    }
    require(end == size && attributed.string() == text, "the runs end at {} of {}", end, size);
    auto joined = attributed.sub(0, 5);
    joined.append(attributed.sub(5));
    require(joined == attributed, "two parts are another text than the whole");
    for (auto const& markup : {attributed.html(), attributed.pangoMarkup()}) {
        for (auto const& [part, isUTF8] : wellFormedParts(markup)) require(isUTF8, "markup that is not UTF-8");
        require(std::ranges::count(markup, '<') == std::ranges::count(markup, '>') && markup.find('\0') == markup.npos,
                "markup with a loose end");
        require(unicode(markup).length() > 0 || text.empty(), "markup of nothing");
    }
    tally.add("attributed texts");
}

} // namespace

void tryText(Trial& trial, Tally& tally) {
    for (int round = 0; round < 40; ++round) {
        auto const text = someText(trial, trial.chance(0.1) ? 400 : 30);
        tryCharacters(trial, tally, text);
        trySets(trial, tally, text);
        tryLanguage(trial, tally, text);
        tryPaths(trial, tally, text);
        tryAttributes(trial, tally, text);
    }
}

void judgeTexts(Tally const& tally) {
    require(tally.of("ill-formed texts") > tally.of("well-formed texts") / 4 &&
                tally.of("well-formed texts") > tally.of("ill-formed texts") / 4,
            "hardly any ill-formed texts, or hardly any others");
}

} // namespace Tessarin::campaigns
