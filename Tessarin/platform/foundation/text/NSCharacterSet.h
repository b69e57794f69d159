#pragma once
#include "Tessarin/Export.h"
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace Tessarin {

/// A set of Unicode's code points: a value, immutable, cheap to copy, for any thread. A byte of a text that is not UTF-8 is a
/// member of the illegal characters, of inverses of sets that it is no member of, and of unions with one that it is a member of.
///
///     auto const blanks = NSCharacterSet::whitespaceAndNewlineCharacterSet();
///     auto const words = (blanks | NSCharacterSet::punctuationCharacterSet()).invertedSet();
///     if (words.characterIsMember(U'é')) Text::split(text, words.invertedSet());
class TESSARIN_API NSCharacterSet {
public:
    static NSCharacterSet letterCharacterSet(); // with the marks that letters bear
    static NSCharacterSet decimalDigitCharacterSet(); // of every script
    static NSCharacterSet alphanumericCharacterSet(); // letters, marks and numbers of all kinds
    static NSCharacterSet whitespaceCharacterSet(); // spaces of all widths and the tabulator
    static NSCharacterSet newlineCharacterSet(); // U+000A to U+000D, U+0085, U+2028, U+2029
    static NSCharacterSet whitespaceAndNewlineCharacterSet(); // both
    static NSCharacterSet punctuationCharacterSet();
    static NSCharacterSet symbolCharacterSet();
    static NSCharacterSet controlCharacterSet(); // and those that format, such as U+00AD
    static NSCharacterSet illegalCharacterSet(); // to which Unicode has given no meaning, or never will
    /// The code points of a text; what in it is not UTF-8 adds nothing.
    static NSCharacterSet characterSetWithCharactersInString(std::string_view text);

    NSCharacterSet invertedSet() const;
    NSCharacterSet setByFormingUnionWithSet(NSCharacterSet const& other) const;
    friend NSCharacterSet operator|(NSCharacterSet const& a, NSCharacterSet const& b) { return a.setByFormingUnionWithSet(b); }

    bool characterIsMember(char32_t character) const noexcept;
    friend TESSARIN_API bool operator==(NSCharacterSet const& a, NSCharacterSet const& b) noexcept;

    /// The bytes of a text's first code point, or ill-formed byte; 0 for an empty text.
    static std::size_t lengthOfFirst(std::string_view text) noexcept;
    /// The bytes of as many members as a text begins with.
    std::size_t lengthOfMembers(std::string_view text) const noexcept { return lengthOfSpan(text, true); }
    /// The bytes before the first member.
    std::size_t lengthOfOthers(std::string_view text) const noexcept { return lengthOfSpan(text, false); }
    /// The text between the members at both ends.
    std::string_view trimmed(std::string_view text) const noexcept;

    /// As ICU writes sets: "[0-9]".
    std::string description() const;

private:
    struct Members;
    explicit NSCharacterSet(std::shared_ptr<Members const> members) : members_(std::move(members)) {}
    struct Named;
    struct Names;
    template <Named const& Name> static NSCharacterSet named();
    std::size_t lengthOfSpan(std::string_view text, bool ofMembers) const noexcept;

    std::shared_ptr<Members const> members_;
};

} // namespace Tessarin
