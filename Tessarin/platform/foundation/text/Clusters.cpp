// Grapheme clusters of UTF-8 by the rules of ICU's character iterator, which walks UTF-16 or through an adapter, and slower
// (benchmark "text"). The campaign "fuzz-text" holds both against each other.
#include "Tessarin/platform/foundation/text/ClustersPrivate.h"

#include "Tessarin/platform/runtime/Fatal.h"

#include <unicode/ucptrie.h>
#include <unicode/umutablecptrie.h>
#include <unicode/uniset.h>
#include <unicode/utf8.h>

namespace Tessarin::clusters {
namespace {

enum Kind : std::uint8_t {
    Other,
    CR,
    LF,
    Control,
    Extend,
    Mark,
    Virama,
    ZWJ,
    Spacing,
    Prepend,
    Flag,
    L,
    V,
    T,
    LV,
    LVT,
    Pictogram,
    Consonant
};

/// The kind of each code point: a table of some kilobytes, made once.
class Kinds {
public:
    Kinds() {
        constexpr char const* linking = R"([\p{Gujr}\p{sc=Telu}\p{sc=Mlym}\p{sc=Orya}\p{sc=Beng}\p{sc=Deva}&\p{InSC=)";
        auto* const table = umutablecptrie_open(Other, Other, &status_);
        set(table, R"([\p{ExtPict}])", Pictogram);
        set(table, std::string{linking} + "Consonant}]", Consonant);
        constexpr struct {
            char const* name;
            Kind kind;
        } named[] = {{"CR", CR},   {"LF", LF}, {"CN", Control}, {"EX", Extend}, {"ZWJ", ZWJ}, {"SM", Spacing}, {"PP", Prepend},
                     {"RI", Flag}, {"L", L},   {"V", V},        {"T", T},       {"LV", LV},   {"LVT", LVT}};
        for (auto const& [name, kind] : named) set(table, std::string{R"([\p{GCB=)"} + name + "}]", kind);
        set(table, R"([\p{GCB=EX}-\p{ccc=0}])", Mark);
        set(table, std::string{linking} + "Virama}]", Virama);
        table_ = umutablecptrie_buildImmutable(table, UCPTRIE_TYPE_FAST, UCPTRIE_VALUE_BITS_8, &status_);
        umutablecptrie_close(table);
        if (U_FAILURE(status_)) fatal("the Unicode data of ICU cannot be read");
    }
    Kind of(UChar32 character) const noexcept { return static_cast<Kind>(UCPTRIE_FAST_GET(table_, UCPTRIE_8, character)); }

private:
    void set(UMutableCPTrie* table, std::string const& pattern, Kind kind) {
        icu::UnicodeSet const members(icu::UnicodeString::fromUTF8(pattern), status_);
        for (std::int32_t at = 0; at < members.getRangeCount(); ++at)
            umutablecptrie_setRange(table, members.getRangeStart(at), members.getRangeEnd(at), kind, &status_);
    }

    UErrorCode status_ = U_ZERO_ERROR;
    UCPTrie* table_ = nullptr;
};

/// The kinds of a text's code points, one by one. A byte that is not UTF-8 joins nothing, as a control character does.
class Reader {
public:
    Reader(std::string_view text, std::size_t at) noexcept : kinds_(kinds()), text_(text), end_(at) { look(); }

    Kind next() const noexcept { return next_; } // of what is not taken yet; Control at the end
    std::size_t end() const noexcept { return end_; }
    Kind take() noexcept {
        auto const taken = next_;
        end_ = nextEnd_;
        look();
        return taken;
    }
    void takeWhile(auto const& wanted) noexcept {
        while (wanted(next_)) take();
    }

private:
    static Kinds const& kinds() {
        static Kinds const shared;
        return shared;
    }
    void look() noexcept {
        nextEnd_ = end_;
        next_ = Control;
        if (end_ == text_.size()) return;
        auto const* const bytes = reinterpret_cast<std::uint8_t const*>(text_.data());
        UChar32 character = 0;
        U8_NEXT(bytes, nextEnd_, text_.size(), character);
        if (character >= 0)
            next_ = kinds_.of(character);
        else
            nextEnd_ = end_ + 1; // and not all that might have been one
    }

    Kinds const& kinds_;
    std::string_view text_;
    std::size_t end_, nextEnd_ = 0;
    Kind next_ = Control;
};

bool isBreaking(Kind kind) { return kind == CR || kind == LF || kind == Control; }

/// A syllable of Hangul, of which the first part is taken.
void takeSyllable(Reader& reader, Kind last) noexcept {
    if (last == L) {
        reader.takeWhile([](Kind kind) { return kind == L; });
        auto const next = reader.next();
        if (next == V || next == LV || next == LVT) last = reader.take();
    }
    if (last == V || last == LV) {
        reader.takeWhile([](Kind kind) { return kind == V; });
        if (reader.next() == T) last = reader.take();
    }
    if (last == T || last == LVT) reader.takeWhile([](Kind kind) { return kind == T; });
}

/// What joins the character before it; and, through a joiner, a pictogram to a pictogram, through a virama a consonant to a
/// consonant.
void takeFollowers(Reader& reader, Kind base) noexcept {
    bool isPictogram = base == Pictogram, isJoined = false, isConsonant = base == Consonant, isLinked = false;
    for (;; reader.take()) {
        auto const kind = reader.next();
        switch (kind) {
        case Extend:
        case Mark:
        case Virama:
            isConsonant = isConsonant && kind != Extend;
            isLinked = isLinked || (kind == Virama && isConsonant);
            isPictogram = isPictogram && !isJoined;
            isJoined = false;
            break;
        case ZWJ:
            isPictogram = isPictogram && !isJoined;
            isJoined = isPictogram;
            break;
        case Spacing: isPictogram = isJoined = isConsonant = false; break;
        case Pictogram:
            if (!(isPictogram && isJoined)) return;
            isJoined = isConsonant = false;
            break;
        case Consonant:
            if (!(isConsonant && isLinked)) return;
            isLinked = false;
            break;
        default: return;
        }
    }
}

} // namespace

std::size_t endOf(std::string_view text, std::size_t at) noexcept {
    Reader reader(text, at);
    if (auto const next = reader.next(); isBreaking(next)) {
        if (reader.take(); next == CR && reader.next() == LF) reader.take();
        return reader.end();
    }
    auto base = reader.take();
    while (base == Prepend && !isBreaking(reader.next())) base = reader.take();
    if (base == Flag && reader.next() == Flag) reader.take();
    takeSyllable(reader, base);
    takeFollowers(reader, base);
    return reader.end();
}

std::size_t count(std::string_view text) noexcept {
    std::size_t all = 0;
    forEachRun(text, [&](std::size_t, std::size_t count) {
        all += count;
        return true;
    });
    return all;
}

std::size_t offsetOf(std::string_view text, std::size_t index) noexcept {
    auto found = text.size();
    forEachRun(text, [&](std::size_t offset, std::size_t count) {
        if (index >= count) {
            index -= count;
            return true;
        }
        found = offset + index;
        return false;
    });
    return found;
}

} // namespace Tessarin::clusters
