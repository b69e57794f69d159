#pragma once
#include "Tessarin/platform/foundation/time/NSDateFormatter.h"
#include "Tessarin/platform/runtime/Fatal.h"

namespace Tessarin {

/// Fatal when a locale has fewer names than that.
inline std::string symbolAt(std::vector<std::string> symbols, std::int64_t position) {
    auto const at = static_cast<std::size_t>(position);
    if (at >= symbols.size()) fatal("the locale has no name for position " + std::to_string(position));
    return std::move(symbols[at]);
}

} // namespace Tessarin
