#pragma once
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

/// A domain as the name system has it, "xn--bcher-kva.example"; absent when IDNA (UTS 46, non-transitional) does not allow it.
std::optional<std::string> domainInASCII(std::string_view domain);

} // namespace Tessarin
