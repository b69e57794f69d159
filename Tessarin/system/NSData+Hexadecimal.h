#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/values/Hexadecimal.h"

namespace Tessarin {

class NSData;

/// Data as hexadecimal text, and read from it. What each takes is said in Hexadecimal.h. Any thread.
///
///     auto const text = data.hexadecimalText();                                    // "00ff"
///     auto const address = NSData::dataWithHexadecimalText("52:54:00", {.separator = ":"});
///     if (!address) return reject();
class TESSARIN_API NSDataHexadecimal {
    friend class NSData; // only NSData can carry this room
    NSDataHexadecimal() = default;

public:
    std::string hexadecimalText(HexadecimalStyle const& style = {}) const;
    /// Absent when the text is ill formed.
    static std::optional<NSData> dataWithHexadecimalText(std::string_view text, HexadecimalStyle const& style = {});
    /// For people to read: lines with offset, sixteen bytes and their ASCII.
    std::string hexadecimalDump() const;

protected:
    ~NSDataHexadecimal() = default;
};

} // namespace Tessarin
