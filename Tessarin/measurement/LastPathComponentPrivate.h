#pragma once
#include <string_view>

namespace Tessarin {

/// What follows the last "/"; all of it when there is none.
std::string_view lastPathComponent(std::string_view path);

} // namespace Tessarin
