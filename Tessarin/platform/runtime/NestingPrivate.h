#pragma once
#include <cstddef>

namespace Tessarin {

/// How deep lists and dictionaries that come from outside may lie in one another: in texts, files and imports. Whatever walks through
/// them by calling itself gets by with half a megabyte of stack for that, and with the usual eight where a sanitizer makes frames larger.
inline constexpr std::size_t deepestLevel = 500;

} // namespace Tessarin
