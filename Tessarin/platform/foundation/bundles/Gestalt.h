#pragma once
#include "Tessarin/Export.h"
// What other rooms add to it:
#include "Tessarin/system/Gestalt+Build.h"
#include "Tessarin/system/Gestalt+Machine.h"
#include "Tessarin/system/Gestalt+Process.h"

namespace Tessarin::Gestalt {

/// True exactly when a class named "XCTest" is registered with the runtime, as a test program's main does.
TESSARIN_API bool isRunningUnitTests();

} // namespace Tessarin::Gestalt
