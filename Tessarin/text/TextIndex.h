#pragma once
#include "Tessarin/platform/runtime/Text.h"
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

namespace Tessarin {

/// The characters of a text (grapheme clusters, see `Text::length`) by index, each in the same short time. A value, immutable,
/// cheap to copy, for any thread. It keeps the text: a `Text` that is there already costs nothing more. Beside it stay nothing
/// for plain ASCII and about a sixth of the text's size for any other.
///
///     TextIndex const characters(article);
///     for (std::size_t at = 0; at < characters.length(); ++at) show(*characters.at(at));
class TESSARIN_API TextIndex {
public:
    explicit TextIndex(Text text);
    TextIndex(TextIndex const&) = default;
    /// Leaves an index of no characters.
    TextIndex(TextIndex&& other) noexcept : TextIndex() { swap(other); }
    TextIndex& operator=(TextIndex other) noexcept {
        swap(other);
        return *this;
    }
    ~TextIndex() = default;

    std::size_t length() const noexcept { return length_; }
    /// The whole text; this and all pieces below are there for as long as a copy of this index is.
    std::string_view text() const noexcept { return text_; }

    /// The character of that index, counted from the end when it is negative: -1 is the last. Absent out of range.
    std::optional<std::string_view> at(std::ptrdiff_t index) const noexcept {
        if (index < 0) index += static_cast<std::ptrdiff_t>(length_);
        auto const place = static_cast<std::size_t>(index);
        if (place >= length_) return {};
        if (isPlain_) return text_.substr(place, 1);
        return clusterAt(place);
    }
    /// The characters from `from` on, up to `to` and without it; as `Text::sub`.
    std::string_view sub(std::ptrdiff_t from, std::ptrdiff_t to = PTRDIFF_MAX) const noexcept;

    /// The byte at which the character begins; the text's size for `length()`, absent beyond. Not counted from the end.
    std::optional<std::size_t> offsetOf(std::size_t index) const noexcept;
    /// The index of the character to which that byte belongs; absent beyond the text.
    std::optional<std::size_t> indexOf(std::size_t offset) const noexcept;

private:
    struct Table;
    TextIndex() = default;
    void swap(TextIndex& other) noexcept {
        table_.swap(other.table_);
        std::swap(text_, other.text_);
        std::swap(length_, other.length_);
        std::swap(isPlain_, other.isPlain_);
    }
    std::string_view clusterAt(std::size_t index) const noexcept;

    std::shared_ptr<Table const> table_;
    std::string_view text_; // in the table
    std::size_t length_ = 0;
    bool isPlain_ = true; // a byte each
};

} // namespace Tessarin
