#include "Tessarin/platform/foundation/values/UTF8Private.h"

#include <unicode/unistr.h>

namespace Tessarin {

std::string wellFormedUTF8(std::string_view text) {
    std::string result;
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())))
        .toUTF8String(result);
}

} // namespace Tessarin
