#include "Tessarin/dispatch/NSOperationQueue+Serial.h"

#include "Tessarin/platform/foundation/NSOperationQueue.h"

namespace Tessarin {

void NSOperationQueue::init(Serial serial) {
    init();
    if (serial == Serial::Yes) setMaxConcurrentOperationCount(1);
}

void NSOperationQueueSerial::addOperationWithBlockAndWait(FunctionRef<void()> block) {
    static_cast<NSOperationQueue&>(*this).runAndWait(block);
}

} // namespace Tessarin
