// Texts with attributes as Pango's markup: a span for each run.
#include "Tessarin/platform/foundation/text/MarkupPrivate.h"
#include "Tessarin/platform/foundation/text/NSAttributedString.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace Tessarin {
namespace {

using markup::appendEscaped;
using markup::Controls;

/// A colour, and its opacity in Pango's 65,536 steps, of which it takes none for 0.
std::string colourAttributes(std::string_view colourName, std::string_view alphaName, NSColor const& colour) {
    auto const opaque = fmt::format(" {}=\"{}\"", colourName, colour.withAlpha(1).hexText());
    auto const alpha = std::lround(colour.clamped().alpha * 65535);
    return alpha == 65535 ? opaque : fmt::format("{} {}=\"{}\"", opaque, alphaName, std::max(alpha, 1L));
}

std::string spanOf(TextAttributes const& attributes) {
    std::string span;
    if (attributes.fontFamily && !attributes.fontFamily->empty()) {
        span += " font_family=\"";
        appendEscaped(span, *attributes.fontFamily, Controls::ByNumber);
        span += '"';
    }
    if (attributes.fontSize && *attributes.fontSize > 0) // in 1024ths; what Pango keeps in 31 bits
        span += fmt::format(" size=\"{}\"", std::max(std::lround(std::min(*attributes.fontSize, 1e6) * 1024), 1L));
    if (attributes.isBold) span += " weight=\"bold\"";
    if (attributes.isItalic) span += " style=\"italic\"";
    if (attributes.isUnderlined) span += " underline=\"single\"";
    if (attributes.isStruckThrough) span += " strikethrough=\"true\"";
    if (attributes.colour) span += colourAttributes("foreground", "fgalpha", *attributes.colour);
    if (attributes.background) span += colourAttributes("background", "bgalpha", *attributes.background);
    return span;
}

} // namespace

std::string NSAttributedString::pangoMarkup(MarkupLinks links) const {
    std::string out;
    for (auto const& run : runs_) {
        bool const isLink = run.attributes.link && links == MarkupLinks::AsAnchors;
        if (isLink) {
            out += "<a href=\"";
            appendEscaped(out, run.attributes.link->absoluteString(), Controls::ByNumber);
            out += "\">";
        }
        auto const span = spanOf(run.attributes);
        if (!span.empty()) out += "<span" + span + ">";
        appendEscaped(out, std::string_view{text_}.substr(run.from, run.to - run.from), Controls::ByNumber);
        if (!span.empty()) out += "</span>";
        if (isLink) out += "</a>";
    }
    return out;
}

} // namespace Tessarin
