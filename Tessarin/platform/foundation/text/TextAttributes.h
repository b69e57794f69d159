#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/foundation/geometry/NSColor.h"
#include <optional>
#include <string>

namespace Tessarin {

/// How a paragraph lies between its margins; `Natural` is as its language does.
enum class TextAlignment { Natural, Left, Center, Right, Justified };

/// How a piece of text looks; what is absent is as its surroundings.
struct TextAttributes {
    std::optional<std::string> fontFamily = {};
    std::optional<double> fontSize = {}; // in points; more than 0, else it is overlooked
    bool isBold = false;
    bool isItalic = false;
    bool isUnderlined = false;
    bool isStruckThrough = false;
    std::optional<NSColor> colour = {};
    std::optional<NSColor> background = {};
    std::optional<NSURL> link = {};
    TextAlignment alignment = TextAlignment::Natural; // of a paragraph: that of its first character counts

    friend bool operator==(TextAttributes const&, TextAttributes const&) = default;
};

} // namespace Tessarin
