#include "Tessarin/dispatch/NSOperationQueue+Serial.h"

#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"

namespace Tessarin {

void NSOperationQueue::init(Serial serial) {
    init();
    if (serial == Serial::Yes) setMaxConcurrentOperationCount(1);
}

void NSOperationQueueSerial::addOperationWithBlockAndWait(FunctionRef<void()> block) {
    auto& queue = static_cast<NSOperationQueue&>(*this);
    queue.addOperations({NSBlockOperation::blockOperationWithBlock([block] { block(); })}, WaitUntilFinished::Yes);
}

} // namespace Tessarin
