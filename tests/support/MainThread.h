#pragma once
#include "Tessarin/platform/runtime/FunctionRef.h"

namespace Tessarin::tests {

/// Tests run on a thread of their own, while the main thread runs the main queue. This stops the main loop for as long as `work`
/// runs on the main thread, outside any work item, and returns when it has run.
void onMainThread(FunctionRef<void()> work);

} // namespace Tessarin::tests
