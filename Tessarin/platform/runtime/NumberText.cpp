#include "Tessarin/platform/runtime/NumberText.h"

#include <charconv>
#include <cmath>

namespace Tessarin {

std::string shortestText(double value) {
    if (std::isnan(value)) return "nan"; // without the sign, which means nothing
    auto const size = std::abs(value);
    bool const isFixed = size == 0 || (size >= 1e-4 && size < 1e16);
    char digits[32];
    auto const end =
        std::to_chars(digits, digits + sizeof digits, value, isFixed ? std::chars_format::fixed : std::chars_format::scientific)
            .ptr;
    std::string text(digits, end);
    if (isFixed && text.find('.') == std::string::npos) text += ".0";
    return text;
}

} // namespace Tessarin
