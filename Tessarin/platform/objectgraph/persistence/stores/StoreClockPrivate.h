#pragma once
#include "Tessarin/Export.h"

namespace Tessarin {

/// The time by which openings wait. Tests put another in its place while no store is being opened.
struct StoreClock {
    double (*now)();              // seconds from any moment
    void (*sleep)(double seconds);
};
TESSARIN_API StoreClock& storeClock();

} // namespace Tessarin
