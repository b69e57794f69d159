#pragma once
#include "Tessarin/Export.h"
// What other rooms add to texts:
#include "Tessarin/text/Text+Characters.h"
#include "Tessarin/text/Text+Language.h"
#include "Tessarin/text/Text+Sets.h"
#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>

namespace Tessarin {

namespace detail {

/// Sixteen bytes that hold a value or a counted pointer to one; `tag` says which. The base of Text and Value.
struct CompactCell {
    static constexpr std::size_t inlineCapacity = 14;
    static constexpr unsigned char onHeap = 0xFF;

    alignas(8) unsigned char raw[inlineCapacity + 1]{}; // a number, a pointer, or up to 14 characters and their count
    unsigned char tag = 0;
};
static_assert(sizeof(CompactCell) == 16);

TESSARIN_API void storeLongText(CompactCell& cell, std::string_view text);
TESSARIN_API void releaseText(CompactCell& cell) noexcept;
TESSARIN_API void retainText(CompactCell const& cell) noexcept;
TESSARIN_API std::string_view longText(CompactCell const& cell) noexcept;

/// Into a fresh cell, whose bytes are zero. Most texts are short: no call for them.
inline void storeText(CompactCell& cell, std::string_view text) {
    auto const size = text.size();
    if (size > CompactCell::inlineCapacity) return storeLongText(cell, text);
    auto const copyEnds = [&](auto word) { // which overlap, or meet
        __builtin_memcpy(&word, text.data(), sizeof word);
        __builtin_memcpy(cell.raw, &word, sizeof word);
        __builtin_memcpy(&word, text.data() + size - sizeof word, sizeof word);
        __builtin_memcpy(cell.raw + size - sizeof word, &word, sizeof word);
    };
    if (size >= 8)
        copyEnds(std::uint64_t{});
    else if (size >= 4)
        copyEnds(std::uint32_t{});
    else if (size >= 2)
        copyEnds(std::uint16_t{});
    else if (size == 1)
        cell.raw[0] = static_cast<unsigned char>(text[0]);
    cell.raw[CompactCell::inlineCapacity] = static_cast<unsigned char>(size);
}

inline std::string_view textOf(CompactCell const& cell) noexcept {
    auto const count = cell.raw[CompactCell::inlineCapacity];
    if (count != CompactCell::onHeap) return {reinterpret_cast<char const*>(cell.raw), count};
    return longText(cell);
}

} // namespace detail

/// An immutable UTF-8 text of sixteen bytes: up to 14 characters inline, longer ones shared. Copies are cheap and may be
/// used on any thread.
class TESSARIN_API Text : private detail::CompactCell, public TextCharacters, public TextSets, public TextLanguage {
public:
    Text() noexcept = default;
    Text(std::string_view text) { detail::storeText(*this, text); }
    Text(std::string const& text) : Text(std::string_view{text}) {}
    Text(char const* text) : Text(std::string_view{text}) {}
    Text(Text const& other) noexcept : CompactCell(other) { detail::retainText(*this); }
    Text(Text&& other) noexcept : CompactCell(other) { static_cast<CompactCell&>(other) = {}; }
    Text& operator=(Text other) noexcept {
        std::swap(static_cast<CompactCell&>(*this), static_cast<CompactCell&>(other));
        return *this;
    }
    ~Text() {
        if (raw[inlineCapacity] == onHeap) detail::releaseText(*this);
    }

    std::string_view view() const noexcept { return detail::textOf(*this); }
    operator std::string_view() const noexcept { return view(); }
    std::string string() const { return std::string{view()}; }
    bool empty() const noexcept { return view().empty(); }
    std::size_t size() const noexcept { return view().size(); }

    friend bool operator==(Text const& a, Text const& b) noexcept {
        if (a.raw[inlineCapacity] == onHeap) return a.view() == b.view();
        return __builtin_memcmp(a.raw, b.raw, sizeof a.raw) == 0; // what a short text leaves over is zero
    }
    friend bool operator==(Text const& a, std::string_view b) noexcept { return a.view() == b; }
    friend bool operator==(Text const& a, char const* b) noexcept { return a.view() == b; }
    friend std::strong_ordering operator<=>(Text const& a, Text const& b) noexcept { return a.view().compare(b.view()) <=> 0; }
    friend TESSARIN_API std::ostream& operator<<(std::ostream& out, Text const& text);

private:
    friend class Value;
};
static_assert(sizeof(Text) == 16); // the rooms cost no bytes

} // namespace Tessarin

template <> struct std::hash<Tessarin::Text> {
    std::size_t operator()(Tessarin::Text const& text) const noexcept { return std::hash<std::string_view>{}(text.view()); }
};
