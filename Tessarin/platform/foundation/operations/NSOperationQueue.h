#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/operations/NSOperation.h"
#include "Tessarin/platform/queues/Queue.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>
// What other rooms add to operation queues:
#include "Tessarin/dispatch/NSOperationQueue+Serial.h"

namespace Tessarin {

/// As many operations at a time as there are threads for them.
inline constexpr std::int64_t NSOperationQueueDefaultMaxConcurrentOperationCount = -1;

enum class WaitUntilFinished { No, Yes };

/// Runs operations in the order in which they were added, up to a number at a time. What was added keeps the queue alive, and
/// an exception that leaves an operation ends the process. Any thread.
///
///     auto const queue = make<NSOperationQueue>(Serial::Yes);
///     queue->addOperationWithBlock([=] { write(page); });
///     queue->waitUntilAllOperationsAreFinished();
class TESSARIN_API NSOperationQueue : public NSObject, public NSOperationQueueSerial {
public:
    /// The queue whose operations the main thread runs, one at a time.
    static Ref<NSOperationQueue> const& mainQueue();

    std::int64_t maxConcurrentOperationCount() const;
    /// Set it before the queue is shared between threads; later it applies to operations that have not begun. 0 holds them
    /// back; any negative number is the default. The main queue ignores it.
    void setMaxConcurrentOperationCount(std::int64_t count);

    void addOperation(Ref<NSOperation> operation);
    void addOperationWithBlock(Closure<void()> block);
    /// Waiting from inside an operation of the same serial queue blocks for ever.
    virtual void addOperations(std::vector<Ref<NSOperation>> const& operations, WaitUntilFinished wait);
    /// The same as adding one block operation and waiting for it, without making the operation.
    void runAndWait(FunctionRef<void()> block);
    void waitUntilAllOperationsAreFinished();
    /// Whether any are queued or run at this moment.
    bool hasOperations() const;
    /// Whether the calling thread runs one of this queue's operations, so that it must not wait for another. The main thread
    /// always counts as running one of the main queue's.
    bool runsHere() const;

    static SelectorTable selectors();

    // In dispatch/NSOperationQueue+Serial.cpp:
    using NSObject::init;
    virtual void init(Serial serial);

    ~NSOperationQueue() override;

protected:
    NSOperationQueue();

private:
    void initWithSerial(bool serial) { init(serial ? Serial::Yes : Serial::No); } // as the selector has it
    void useLane(dispatch_queue_t lane);
    void leaveLane();
    void startMore(); // with the mutex held
    void work();
    bool isIdle() const; // with the mutex held

    // A queue that is set to one at a time while it is idle hands everything to a serial dispatch queue, its lane.
    std::atomic<bool> usesLane_{false};
    bool isMain_ = false;   // constant after it was made
    dispatch_queue_t lane_; // constant once set

    struct Workers; // for operations outside a lane, and the limit
    std::unique_ptr<Workers> const workers_;
};

} // namespace Tessarin
