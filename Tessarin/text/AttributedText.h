#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/text/NSAttributedString.h"
#include <string_view>

namespace Tessarin {

/// Builds an `NSAttributedString` piece by piece. What takes a text also takes an attributed one, and adds to what that has. A
/// value, for one thread at a time.
///
///     NSAttributedString const line = AttributedText()
///                                         .bold("Emma").plain(" by ").link(author, "Jane Austen")
///                                         .italic(AttributedText().colour(red, "new!"));
class TESSARIN_API AttributedText {
public:
    AttributedText() = default;

    AttributedText& plain(std::string_view text) { return with({}, text); }
    AttributedText& with(TextAttributes const& attributes, std::string_view text);
    AttributedText& bold(std::string_view text) { return bold(NSAttributedString(text)); }
    AttributedText& bold(NSAttributedString text);
    AttributedText& italic(std::string_view text) { return italic(NSAttributedString(text)); }
    AttributedText& italic(NSAttributedString text);
    AttributedText& underlined(std::string_view text) { return underlined(NSAttributedString(text)); }
    AttributedText& underlined(NSAttributedString text);
    AttributedText& struckThrough(std::string_view text) { return struckThrough(NSAttributedString(text)); }
    AttributedText& struckThrough(NSAttributedString text);
    AttributedText& font(std::string_view family, std::string_view text) { return font(family, NSAttributedString(text)); }
    AttributedText& font(std::string_view family, NSAttributedString text);
    /// In points.
    AttributedText& size(double points, std::string_view text) { return size(points, NSAttributedString(text)); }
    AttributedText& size(double points, NSAttributedString text);
    AttributedText& colour(NSColor const& colour, std::string_view text) {
        return this->colour(colour, NSAttributedString(text));
    }
    AttributedText& colour(NSColor const& colour, NSAttributedString text);
    AttributedText& background(NSColor const& colour, std::string_view text) {
        return background(colour, NSAttributedString(text));
    }
    AttributedText& background(NSColor const& colour, NSAttributedString text);
    AttributedText& link(NSURL const& url, std::string_view text) { return link(url, NSAttributedString(text)); }
    AttributedText& link(NSURL const& url, NSAttributedString text);
    AttributedText& aligned(TextAlignment alignment, std::string_view text) {
        return aligned(alignment, NSAttributedString(text));
    }
    AttributedText& aligned(TextAlignment alignment, NSAttributedString text);
    AttributedText& append(NSAttributedString const& text);

    NSAttributedString const& text() const noexcept { return text_; }
    operator NSAttributedString() const { return text_; }

private:
    NSAttributedString text_;
};

} // namespace Tessarin
