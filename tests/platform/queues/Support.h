#pragma once
#include "Tessarin/platform/queues/Dispatch.h"
#include "tests/support/Eventually.h"
#include <gtest/gtest.h>

namespace Tessarin::tests {

/// Far more than anything needs; a test that reaches it fails.
inline dispatch_time_t limit() { return dispatch_time(DISPATCH_TIME_NOW, 30 * static_cast<std::int64_t>(NSEC_PER_SEC)); }

/// Something that happens once in a while, and that a test waits for.
class Event {
public:
    void happen() const { dispatch_semaphore_signal(semaphore_); }
    bool wait() const { return dispatch_semaphore_wait(semaphore_, limit()) == 0; }
    bool hasHappened() const { return dispatch_semaphore_wait(semaphore_, DISPATCH_TIME_NOW) == 0; }

private:
    dispatch_semaphore_t semaphore_ = dispatch_semaphore_create(0);
};

inline dispatch_queue_t serialQueue(char const* label = "test") { return dispatch_queue_create(label, DISPATCH_QUEUE_SERIAL); }
inline dispatch_queue_t concurrentQueue() { return dispatch_queue_create("test", DISPATCH_QUEUE_CONCURRENT); }
inline dispatch_queue_t queueOn(dispatch_queue_t const& target, dispatch_queue_attr_t attribute = DISPATCH_QUEUE_SERIAL) {
    auto queue = dispatch_queue_create("test", attribute);
    dispatch_set_target_queue(queue, target);
    return queue;
}

} // namespace Tessarin::tests
