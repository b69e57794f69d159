#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/text/TextAttributes.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

/// What becomes of links in Pango's markup, which knows none: left out, or as the <a href> that labels of GTK understand.
enum class MarkupLinks { LeftOut, AsAnchors };

/// A text whose pieces have attributes. A value, for one thread at a time; texts are equal when their characters and the
/// attributes of each are. `AttributedText` builds them.
///
///     NSAttributedString title("Emma", {.isBold = true});
///     title.append(NSAttributedString(", a novel"));
///     gtk_label_set_markup(label, title.pangoMarkup(MarkupLinks::AsAnchors).c_str());
class TESSARIN_API NSAttributedString {
public:
    /// The bytes from `from` up to `to` and without it.
    struct Run {
        std::size_t from, to;
        TextAttributes attributes;
        friend bool operator==(Run const&, Run const&) = default;
    };

    NSAttributedString() = default;
    explicit NSAttributedString(std::string_view text, TextAttributes attributes = {});

    /// The characters alone.
    std::string const& string() const noexcept { return text_; }
    bool empty() const noexcept { return text_.empty(); }
    /// All of the text, in order, without empty ones; neighbours differ in attributes.
    std::vector<Run> const& runs() const noexcept { return runs_; }
    /// Those of the byte; none beyond the text.
    TextAttributes attributesAt(std::size_t offset) const;

    void append(NSAttributedString const& other);
    /// Has `change` change the attributes between two bytes, run by run. What is out of range stops at the ends; a bound within a
    /// character is moved to that character's beginning.
    void changeAttributes(std::size_t from, std::size_t to, FunctionRef<void(TextAttributes&)> change);
    /// Characters by index, as `Text::sub` counts them, with their attributes.
    NSAttributedString sub(std::ptrdiff_t from, std::ptrdiff_t to = PTRDIFF_MAX) const;

    /// Paragraphs in HTML, one <p> for each line, to be put into a document's body. What is not UTF-8 and characters that HTML
    /// does not allow become U+FFFD.
    std::string html() const;
    /// The text in Pango's markup. Alignment is left out, for it belongs to a layout there; what is not UTF-8 becomes U+FFFD.
    std::string pangoMarkup(MarkupLinks links = MarkupLinks::LeftOut) const;

    std::string description() const { return text_; }
    friend bool operator==(NSAttributedString const&, NSAttributedString const&) = default;
    friend TESSARIN_API std::ostream& operator<<(std::ostream& out, NSAttributedString const& text);

private:
    void add(std::size_t size, TextAttributes const& attributes);

    std::string text_;
    std::vector<Run> runs_;
};

} // namespace Tessarin
