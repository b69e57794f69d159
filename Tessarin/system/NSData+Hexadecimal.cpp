#include "Tessarin/system/NSData+Hexadecimal.h"

#include "Tessarin/platform/foundation/values/NSData.h"

namespace Tessarin {

std::string NSDataHexadecimal::hexadecimalText(HexadecimalStyle const& style) const {
    return hexadecimalFromBytes(static_cast<NSData const&>(*this).bytes(), style);
}

std::optional<NSData> NSDataHexadecimal::dataWithHexadecimalText(std::string_view text, HexadecimalStyle const& style) {
    auto bytes = bytesFromHexadecimal(text, style);
    if (!bytes) return {};
    return NSData{std::move(*bytes)};
}

std::string NSDataHexadecimal::hexadecimalDump() const {
    return Tessarin::hexadecimalDump(static_cast<NSData const&>(*this).bytes());
}

} // namespace Tessarin
