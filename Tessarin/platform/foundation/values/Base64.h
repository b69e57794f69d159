#pragma once
#include "Tessarin/Export.h"
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

/// Bytes as Base64 text with padding, and back. Blanks and line ends inside the text are ignored; absent when it is ill-formed.
TESSARIN_API std::string base64FromBytes(std::span<std::byte const> bytes);
TESSARIN_API std::optional<std::vector<std::byte>> bytesFromBase64(std::string_view text);

} // namespace Tessarin
