#include "Tessarin/platform/runtime/NumberText.h"

#include <charconv>
#include <cmath>

namespace Tessarin {
namespace {

template <class Real> std::string textOf(Real value) {
    if (std::isnan(value)) return "nan"; // without the sign, which means nothing
    auto const size = std::abs(value);
    bool const isFixed = size == 0 || (size >= Real(1e-4) && size < Real(1e16));
    char digits[32];
    auto const end =
        std::to_chars(digits, digits + sizeof digits, value, isFixed ? std::chars_format::fixed : std::chars_format::scientific)
            .ptr;
    std::string text(digits, end);
    if (isFixed && text.find('.') == std::string::npos) text += ".0";
    return text;
}

} // namespace

std::string shortestText(double value) { return textOf(value); }
std::string shortestText(float value) { return textOf(value); }

} // namespace Tessarin
