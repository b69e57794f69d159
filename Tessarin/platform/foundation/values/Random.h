#pragma once
#include "Tessarin/Export.h"
#include <cstddef>
#include <cstdint>
#include <span>

namespace Tessarin {

/// Fills `bytes` from the system's random source, through a small buffer per thread. Any thread, also after a fork.
TESSARIN_API void randomBytes(std::span<std::byte> bytes);

/// A random number below `bound`, each equally likely; 0 for a bound of 0 or 1.
TESSARIN_API std::uint32_t randomBelow(std::uint32_t bound);

} // namespace Tessarin
