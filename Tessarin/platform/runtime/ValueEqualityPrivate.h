#pragma once
#include "Tessarin/platform/runtime/Value.h"

namespace Tessarin {

/// Of two that are numbers, whatever their kinds; unordered where one is NaN.
std::partial_ordering compareNumbers(Value const& a, Value const& b);

} // namespace Tessarin
