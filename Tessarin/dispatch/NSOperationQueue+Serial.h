#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/FunctionRef.h"

namespace Tessarin {

/// Whether an operation queue is made for one operation at a time: `make<NSOperationQueue>(Serial::Yes)`. With `No` it keeps
/// the platform's concurrency.
enum class Serial { No, Yes };

/// Serial operation queues, and submitting to any queue with waiting.
///
///     auto const queue = make<NSOperationQueue>(Serial::Yes);
///     queue->addOperationWithBlockAndWait([&] { watchers.push_back(watcher); });
class TESSARIN_API NSOperationQueueSerial {
    friend class NSOperationQueue; // only NSOperationQueue can carry this room
    NSOperationQueueSerial() = default;

public:
    /// Adds the closure as one block operation by `addOperations`, and returns when it has run on the queue. Called from an
    /// operation of the same serial queue it blocks for ever; nobody checks for that.
    void addOperationWithBlockAndWait(FunctionRef<void()> block);

protected:
    ~NSOperationQueueSerial() = default;
};

} // namespace Tessarin
