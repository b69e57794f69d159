#include "Tessarin/platform/foundation/geometry/GeometryTextPrivate.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace Tessarin::geometry {
namespace {

bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

void skipBlanks(std::string_view& text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
}

/// Takes a number off the text. The words are those that `textOf` writes, and no others that the standard library would take.
bool takeNumber(std::string_view& text, double& number) {
    auto const end = std::find_if(text.begin(), text.end(), [](char c) { return isBlank(c) || c == ',' || c == '}'; });
    std::string_view const word(text.begin(), end);
    text.remove_prefix(word.size());
    if (word.find_first_of("nN") != word.npos && word != "nan" && word != "inf" && word != "-inf") return false;
    auto const [at, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    return error == std::errc{} && at == word.data() + word.size();
}

} // namespace

std::string textOf(std::string_view shape, std::initializer_list<double> numbers) {
    std::string text;
    auto number = numbers.begin();
    for (char const c : shape) {
        if (c != '#') {
            text += c;
            continue;
        }
        char digits[32];
        auto const value = std::isnan(*number) ? std::abs(*number) : *number; // the sign of a NaN means nothing
        text.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
        ++number;
    }
    return text;
}

bool readText(std::string_view text, std::string_view shape, std::initializer_list<double*> numbers) {
    auto number = numbers.begin();
    for (char const c : shape) {
        if (isBlank(c)) continue;
        skipBlanks(text);
        if (c == '#') {
            if (!takeNumber(text, **number++)) return false;
        } else if (text.empty() || text.front() != c) {
            return false;
        } else {
            text.remove_prefix(1);
        }
    }
    skipBlanks(text);
    return text.empty();
}

} // namespace Tessarin::geometry
