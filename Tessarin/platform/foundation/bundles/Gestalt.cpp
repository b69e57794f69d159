#include "Tessarin/platform/foundation/bundles/Gestalt.h"

#include "Tessarin/platform/runtime/Class.h"

namespace Tessarin::Gestalt {

bool isRunningUnitTests() { return classNamed("XCTest") != nullptr; }

} // namespace Tessarin::Gestalt
