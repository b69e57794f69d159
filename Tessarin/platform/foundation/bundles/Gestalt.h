#pragma once
#include "Tessarin/Export.h"

namespace Tessarin::Gestalt {

/// True exactly when a class named "XCTest" is registered with the runtime, as a test program's main does.
TESSARIN_API bool isRunningUnitTests();

} // namespace Tessarin::Gestalt
