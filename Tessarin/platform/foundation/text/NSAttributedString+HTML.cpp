// Texts with attributes as HTML: a paragraph for each line, a span for each run in it.
#include "Tessarin/platform/foundation/text/MarkupPrivate.h"
#include "Tessarin/platform/foundation/text/NSAttributedString.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace Tessarin {
namespace {

using markup::appendEscaped;
using markup::Controls;

std::string_view nameOf(TextAlignment alignment) {
    switch (alignment) {
    case TextAlignment::Left: return "left";
    case TextAlignment::Center: return "center";
    case TextAlignment::Right: return "right";
    case TextAlignment::Justified: return "justify";
    case TextAlignment::Natural: break;
    }
    return {};
}

std::string cssColour(NSColor const& colour) {
    auto const [red, green, blue, alpha] = colour.clamped();
    if (alpha == 1) return colour.hexText();
    auto const byte = [](double part) { return std::lround(part * 255); };
    return fmt::format("rgba({},{},{},{})", byte(red), byte(green), byte(blue), markup::decimal(alpha));
}

/// The text between two quotes of CSS, in an attribute of HTML.
void appendFamily(std::string& out, std::string_view family) {
    std::string name;
    for (char const letter : family) {
        if (letter == '\'' || letter == '\\') name += '\\';
        if (letter != '\n') name += letter;
    }
    out += "font-family:&#39;";
    appendEscaped(out, name, Controls::Replaced);
    out += "&#39;;";
}

std::string styleOf(TextAttributes const& attributes) {
    std::string style;
    if (attributes.fontFamily) appendFamily(style, *attributes.fontFamily);
    if (attributes.fontSize && std::isfinite(*attributes.fontSize) && *attributes.fontSize > 0)
        style += fmt::format("font-size:{}pt;", markup::decimal(*attributes.fontSize));
    if (attributes.isBold) style += "font-weight:bold;";
    if (attributes.isItalic) style += "font-style:italic;";
    if (attributes.isUnderlined || attributes.isStruckThrough)
        style += fmt::format("text-decoration:{}{};", attributes.isUnderlined ? "underline" : "",
                             !attributes.isStruckThrough ? ""
                             : attributes.isUnderlined   ? " line-through"
                                                         : "line-through");
    if (attributes.colour) style += fmt::format("color:{};", cssColour(*attributes.colour));
    if (attributes.background) style += fmt::format("background-color:{};", cssColour(*attributes.background));
    return style;
}

void appendRun(std::string& out, std::string_view text, TextAttributes const& attributes) {
    auto const style = styleOf(attributes);
    if (attributes.link) {
        out += "<a href=\"";
        appendEscaped(out, attributes.link->absoluteString(), Controls::Replaced);
        out += "\">";
    }
    if (!style.empty()) out += fmt::format("<span style=\"{}\">", style);
    appendEscaped(out, text, Controls::Replaced);
    if (!style.empty()) out += "</span>";
    if (attributes.link) out += "</a>";
}

} // namespace

std::string NSAttributedString::html() const {
    std::string_view const text = text_;
    std::string out;
    auto run = runs_.begin();
    for (std::size_t from = 0;;) {
        auto const end = std::min(text.find('\n', from), text.size());
        auto const to = end > from && end < text.size() && text[end - 1] == '\r' ? end - 1 : end; // "\r\n" is one end of a line
        while (run != runs_.end() && run->to <= from) ++run;
        auto const alignment = run == runs_.end() ? std::string_view{} : nameOf(run->attributes.alignment);
        // As an attribute: not every reader of HTML takes all of them as style.
        out += alignment.empty() ? "<p" : fmt::format("<p align=\"{}\"", alignment);
        out += " style=\"margin:0;white-space:pre-wrap;";
        out += from == to ? "-qt-paragraph-type:empty;\">" : "\">"; // where a line break would be one more line
        for (auto part = run; part != runs_.end() && part->from < to; ++part)
            appendRun(out, text.substr(std::max(part->from, from), std::min(part->to, to) - std::max(part->from, from)),
                      part->attributes);
        out += from == to ? "<br></p>" : "</p>"; // and no white space between, which some show
        if (end == text.size()) return out;
        from = end + 1;
    }
}

} // namespace Tessarin
