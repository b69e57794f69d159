#include "Tessarin/platform/foundation/text/NSCharacterSet.h"

#include "Tessarin/platform/runtime/Fatal.h"

#include <unicode/uniset.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <bitset>

namespace Tessarin {

struct NSCharacterSet::Members {
    icu::UnicodeSet set;
    bool holdsIllFormed;
    std::bitset<128> ascii;

    Members(icu::UnicodeSet const& members, bool withIllFormed) : set(members), holdsIllFormed(withIllFormed) {
        set.freeze();
        if (set.isBogus()) fatal("no memory for a character set");
        for (std::int32_t at = 0; at < 128; ++at) ascii[static_cast<std::size_t>(at)] = set.contains(at);
    }
    bool holds(UChar32 character) const noexcept {
        if (character < 0) return holdsIllFormed;
        return character < 128 ? ascii[static_cast<std::size_t>(character)] : static_cast<bool>(set.contains(character));
    }
};

namespace {

std::uint8_t const* bytesOf(std::string_view text) { return reinterpret_cast<std::uint8_t const*>(text.data()); }

/// The code point at `at`, which moves behind it; negative, and one byte, for what is not UTF-8.
UChar32 nextOf(std::string_view text, std::size_t& at) noexcept {
    auto const from = at;
    UChar32 character = 0;
    U8_NEXT(bytesOf(text), at, text.size(), character);
    if (character < 0) at = from + 1;
    return character;
}

} // namespace

struct NSCharacterSet::Named {
    char const* pattern; // as ICU reads it
    bool holdsIllFormed = false;
};

/// Read once, when it is asked for first.
template <NSCharacterSet::Named const& Name> NSCharacterSet NSCharacterSet::named() {
    static NSCharacterSet const set = [] {
        UErrorCode status = U_ZERO_ERROR;
        icu::UnicodeSet const members(icu::UnicodeString::fromUTF8(Name.pattern), status);
        if (U_FAILURE(status)) fatal("the Unicode data of ICU cannot be read");
        return NSCharacterSet{std::make_shared<Members const>(members, Name.holdsIllFormed)};
    }();
    return set;
}

struct NSCharacterSet::Names {
    static constexpr Named letter{R"([\p{L}\p{M}])"};
    static constexpr Named decimalDigit{R"([\p{Nd}])"};
    static constexpr Named alphanumeric{R"([\p{L}\p{M}\p{N}])"};
    static constexpr Named whitespace{R"([\p{Zs}\u0009])"};
    static constexpr Named newline{R"([\u000A-\u000D\u0085\u2028\u2029])"};
    static constexpr Named whitespaceAndNewline{R"([\p{Zs}\u0009-\u000D\u0085\u2028\u2029])"};
    static constexpr Named punctuation{R"([\p{P}])"};
    static constexpr Named symbol{R"([\p{S}])"};
    static constexpr Named control{R"([\p{Cc}\p{Cf}])"};
    static constexpr Named illegal{R"([\p{Cn}\p{Cs}])", true}; // among the unassigned are the non-characters
};

NSCharacterSet NSCharacterSet::letterCharacterSet() { return named<Names::letter>(); }
NSCharacterSet NSCharacterSet::decimalDigitCharacterSet() { return named<Names::decimalDigit>(); }
NSCharacterSet NSCharacterSet::alphanumericCharacterSet() { return named<Names::alphanumeric>(); }
NSCharacterSet NSCharacterSet::whitespaceCharacterSet() { return named<Names::whitespace>(); }
NSCharacterSet NSCharacterSet::newlineCharacterSet() { return named<Names::newline>(); }
NSCharacterSet NSCharacterSet::whitespaceAndNewlineCharacterSet() { return named<Names::whitespaceAndNewline>(); }
NSCharacterSet NSCharacterSet::punctuationCharacterSet() { return named<Names::punctuation>(); }
NSCharacterSet NSCharacterSet::symbolCharacterSet() { return named<Names::symbol>(); }
NSCharacterSet NSCharacterSet::controlCharacterSet() { return named<Names::control>(); }
NSCharacterSet NSCharacterSet::illegalCharacterSet() { return named<Names::illegal>(); }

NSCharacterSet NSCharacterSet::characterSetWithCharactersInString(std::string_view text) {
    icu::UnicodeSet set;
    for (std::size_t at = 0; at < text.size();)
        if (auto const character = nextOf(text, at); character >= 0) set.add(character);
    return NSCharacterSet{std::make_shared<Members const>(set, false)};
}

NSCharacterSet NSCharacterSet::invertedSet() const {
    icu::UnicodeSet set;
    set.addAll(members_->set);
    return NSCharacterSet{std::make_shared<Members const>(set.complement(), !members_->holdsIllFormed)};
}

NSCharacterSet NSCharacterSet::setByFormingUnionWithSet(NSCharacterSet const& other) const {
    icu::UnicodeSet set;
    set.addAll(members_->set).addAll(other.members_->set);
    return NSCharacterSet{std::make_shared<Members const>(set, members_->holdsIllFormed || other.members_->holdsIllFormed)};
}

bool NSCharacterSet::characterIsMember(char32_t character) const noexcept {
    return character <= 0x10FFFF && members_->holds(static_cast<UChar32>(character));
}

bool operator==(NSCharacterSet const& a, NSCharacterSet const& b) noexcept {
    return a.members_ == b.members_ ||
           (a.members_->holdsIllFormed == b.members_->holdsIllFormed && a.members_->set == b.members_->set);
}

std::size_t NSCharacterSet::lengthOfFirst(std::string_view text) noexcept {
    std::size_t at = 0;
    if (!text.empty()) nextOf(text, at);
    return at;
}

std::size_t NSCharacterSet::lengthOfSpan(std::string_view text, bool ofMembers) const noexcept {
    for (std::size_t at = 0; at < text.size();) {
        auto const from = at;
        if (members_->holds(nextOf(text, at)) != ofMembers) return from;
    }
    return text.size();
}

std::string_view NSCharacterSet::trimmed(std::string_view text) const noexcept {
    text.remove_prefix(lengthOfMembers(text));
    while (!text.empty()) {
        auto const tail = text.substr(text.size() - std::min<std::size_t>(text.size(), 4)); // ICU counts in 32 bits
        auto from = static_cast<std::int32_t>(tail.size());
        UChar32 character = 0;
        U8_PREV(bytesOf(tail), 0, from, character);
        if (!members_->holds(character)) break;
        text.remove_suffix(character < 0 ? 1 : tail.size() - static_cast<std::size_t>(from));
    }
    return text;
}

std::string NSCharacterSet::description() const {
    icu::UnicodeString pattern;
    std::string text;
    return members_->set.toPattern(pattern, true).toUTF8String(text);
}

} // namespace Tessarin
