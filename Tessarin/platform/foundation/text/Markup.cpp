#include "Tessarin/platform/foundation/text/MarkupPrivate.h"

#include <fmt/format.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

namespace Tessarin::markup {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

bool isControl(UChar32 character) {
    return character < 0x20 ? character != '\n' && character != '\t' : character >= 0x7F && character < 0xA0;
}

} // namespace

void appendEscaped(std::string& out, std::string_view text, Controls controls) {
    auto const* const bytes = reinterpret_cast<std::uint8_t const*>(text.data());
    for (std::size_t at = 0; at < text.size();) {
        auto const from = at;
        UChar32 character = 0;
        U8_NEXT(bytes, at, text.size(), character);
        switch (character) {
        case '&': out += "&amp;"; continue;
        case '<': out += "&lt;"; continue;
        case '>': out += "&gt;"; continue;
        case '"': out += "&quot;"; continue;
        case '\'': out += "&#39;"; continue;
        default: break;
        }
        if (character < 0) at = from + 1;
        bool const isByNumber = controls == Controls::ByNumber;
        if (character <= 0 || (!isByNumber && (isControl(character) || !U_IS_UNICODE_CHAR(character))))
            out += replacement;
        else if (isControl(character))
            out += fmt::format("&#x{:x};", static_cast<unsigned>(character));
        else
            out.append(text.substr(from, at - from));
    }
}

std::string decimal(double number) {
    auto text = fmt::format("{:.3f}", number);
    while (text.back() == '0') text.pop_back();
    if (text.back() == '.') text.pop_back();
    return text;
}

} // namespace Tessarin::markup
