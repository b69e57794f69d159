#include "Tessarin/platform/foundation/values/UTF8Private.h"

#include <unicode/unistr.h>
#include <unicode/utf8.h>

namespace Tessarin {

bool isUTF8(std::string_view text) {
    auto const* const bytes = reinterpret_cast<std::uint8_t const*>(text.data());
    UChar32 character = 0;
    for (std::size_t at = 0; at < text.size() && character >= 0;) U8_NEXT(bytes, at, text.size(), character);
    return character >= 0;
}

std::string wellFormedUTF8(std::string_view text) {
    std::string result;
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())))
        .toUTF8String(result);
}

} // namespace Tessarin
