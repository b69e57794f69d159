#include "Tessarin/text/AttributedText.h"

namespace Tessarin {
namespace {

template <class Change> NSAttributedString changed(NSAttributedString text, Change const& change) {
    text.changeAttributes(0, text.string().size(), change);
    return text;
}

} // namespace

AttributedText& AttributedText::append(NSAttributedString const& text) {
    text_.append(text);
    return *this;
}

AttributedText& AttributedText::with(TextAttributes const& attributes, std::string_view text) {
    return append(NSAttributedString(text, attributes));
}

AttributedText& AttributedText::bold(NSAttributedString text) {
    return append(changed(std::move(text), [](TextAttributes& each) { each.isBold = true; }));
}
AttributedText& AttributedText::italic(NSAttributedString text) {
    return append(changed(std::move(text), [](TextAttributes& each) { each.isItalic = true; }));
}
AttributedText& AttributedText::underlined(NSAttributedString text) {
    return append(changed(std::move(text), [](TextAttributes& each) { each.isUnderlined = true; }));
}
AttributedText& AttributedText::struckThrough(NSAttributedString text) {
    return append(changed(std::move(text), [](TextAttributes& each) { each.isStruckThrough = true; }));
}
AttributedText& AttributedText::font(std::string_view family, NSAttributedString text) {
    return append(changed(std::move(text), [&](TextAttributes& each) { each.fontFamily = family; }));
}
AttributedText& AttributedText::size(double points, NSAttributedString text) {
    return append(changed(std::move(text), [&](TextAttributes& each) { each.fontSize = points; }));
}
AttributedText& AttributedText::colour(NSColor const& colour, NSAttributedString text) {
    return append(changed(std::move(text), [&](TextAttributes& each) { each.colour = colour; }));
}
AttributedText& AttributedText::background(NSColor const& colour, NSAttributedString text) {
    return append(changed(std::move(text), [&](TextAttributes& each) { each.background = colour; }));
}
AttributedText& AttributedText::link(NSURL const& url, NSAttributedString text) {
    return append(changed(std::move(text), [&](TextAttributes& each) { each.link = url; }));
}
AttributedText& AttributedText::aligned(TextAlignment alignment, NSAttributedString text) {
    return append(changed(std::move(text), [&](TextAttributes& each) { each.alignment = alignment; }));
}

} // namespace Tessarin
