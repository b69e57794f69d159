#pragma once
#include "Tessarin/Export.h"
#include <string>

namespace Tessarin {

/// The shortest text that reads back as the same number: "0.25", "12.0", "1e-05". With ".0" when it is whole; with an exponent
/// below 1e-4 and from 1e16 on; "inf", "-inf" and "nan". The same in every locale.
TESSARIN_API std::string shortestText(double value);
TESSARIN_API std::string shortestText(float value);

} // namespace Tessarin
