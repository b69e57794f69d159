#pragma once
#include "Tessarin/platform/queues/Queue.h"

/// How the main queue meets the application's main thread, which is the process's first thread, whoever loads the library. A
/// program without a toolkit calls `runMainLoop`; one with a toolkit polls `mainQueueDescriptor` and calls `drainMainQueue`, as
/// GLibMainQueue and QtMainQueue in integration/ do.
/// All of this is fatal on another thread, but for `stopMainLoop` and `mainQueueDescriptor`.
namespace Tessarin {

/// Runs the main queue's items as they come, until `stopMainLoop`. Fatal inside an item of the main queue.
TESSARIN_API void runMainLoop();
/// Makes `runMainLoop` return after the item that runs now; what is queued stays queued. A stop that comes while no loop runs
/// ends the next one at its start.
TESSARIN_API void stopMainLoop();

/// A descriptor that is readable while the main queue has items to run. It belongs to the library.
TESSARIN_API int mainQueueDescriptor();
/// Clears the descriptor, then runs what is queued now: an item that submits itself again runs once per call, and the descriptor
/// is readable again when more has come. Inside an item it runs nothing, and the descriptor stays quiet until the item's end.
TESSARIN_API void drainMainQueue();

} // namespace Tessarin
