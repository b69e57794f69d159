#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

class Value;

/// A word of a text: its bytes, and the form in which words are compared, without case and diacritics as in `[cd]`.
struct SearchWord {
    std::string_view folded; // valid only while it is handed out
    std::size_t begin, end;
};

/// Hands the words of a text on, in their order, until `each` gives false. Letters and digits make words; Unicode tells where they
/// end, in languages without spaces by a dictionary. Whatever else is in ASCII lies between words: "foo_bar" and "foo.bar" are two.
/// Of a word that is longer than 255 bytes the first ones count. Any thread.
TESSARIN_API void forEachSearchWord(std::string_view text, FunctionRef<bool(SearchWord const&)> each);

/// Names the rules by which texts become words here: another name, other words.
TESSARIN_API std::string const& searchWordsVersion();

/// What somebody looks for, taken apart into words. A text has it when it has all of them, in any order and anywhere, the last one
/// perhaps as the beginning of a longer word: "jane pri" is found in "Pride and Prejudice, by Jane Austen". Immutable; any thread.
class TESSARIN_API SearchQuery {
public:
    /// Any text, such as one that a user is typing. One without words is found in every text.
    explicit SearchQuery(std::string_view text);

    /// Whole words first, each once and in order; the last is the beginning of one. As they are compared.
    std::vector<std::string> const& words() const noexcept { return words_; }
    bool isEmpty() const noexcept { return words_.empty(); }

    /// Whether the texts have it together. Not even an empty query is found in no text.
    bool isFoundIn(std::span<std::string_view const> texts) const;
    /// Adds to each word's count how often it is in the text; gives the count of all words.
    std::size_t countIn(std::string_view text, std::span<std::size_t> counts) const;
    /// Hands on which of `words()` a word of a text is: a whole one, the beginning, or both.
    void forEachMatch(std::string_view folded, FunctionRef<void(std::size_t index)> each) const;

private:
    std::vector<std::string> words_;
};

/// The same of a value that a predicate compares: a text, or a list of them.
bool isFoundIn(SearchQuery const& query, Value const& texts);

} // namespace Tessarin
