#include "Tessarin/platform/queues/engine/Pool.h"
#include "Tessarin/platform/queues/engine/Specifics.h"

#include "Tessarin/platform/queues/Queue.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include <algorithm>
#include <cstring>

namespace Tessarin {

using namespace engine;

namespace {

// A thread's name has at most 15 characters.
constinit GlobalQueue background{"global.background", "dispatch-backgr", 15};
constinit GlobalQueue utility{"global.utility", "dispatch-utilit", 5};
constinit GlobalQueue standard{"global.default", "dispatch-normal", 0};
constinit GlobalQueue userInitiated{"global.user-initiated", "dispatch-initia", 0};
constinit GlobalQueue userInteractive{"global.user-interactive", "dispatch-intera", 0};

char* copyOfLabel(char const* label) {
    if (!label || !*label) return nullptr;
    auto const size = std::strlen(label) + 1;
    return static_cast<char*>(std::memcpy(new char[size], label, size));
}

} // namespace

namespace engine {

constinit Lock rareLock;

GlobalQueue* globalQueue(std::intptr_t identifier) noexcept {
    switch (identifier) {
    case QOS_CLASS_BACKGROUND:
    case DISPATCH_QUEUE_PRIORITY_BACKGROUND: return &background;
    case QOS_CLASS_UTILITY:
    case DISPATCH_QUEUE_PRIORITY_LOW: return &utility;
    case QOS_CLASS_DEFAULT:
    case DISPATCH_QUEUE_PRIORITY_DEFAULT: return &standard;
    case QOS_CLASS_USER_INITIATED:
    case DISPATCH_QUEUE_PRIORITY_HIGH: return &userInitiated;
    case QOS_CLASS_USER_INTERACTIVE: return &userInteractive;
    default: return nullptr;
    }
}

DispatchQueue& defaultGlobalQueue() noexcept { return standard; }

Pool::Visit inspectPools(Nanoseconds now) noexcept {
    auto next = Pool::Visit::NotNeeded;
    for (auto* queue : {&background, &utility, &standard, &userInitiated, &userInteractive})
        next = std::max(next, queue->pool.inspect(now));
    return next;
}

} // namespace engine

dispatch_queue_t dispatch_queue_create(char const* label, dispatch_queue_attr_t attribute) {
    auto* target =
        globalQueue(attribute.qualityOfService == QOS_CLASS_UNSPECIFIED ? QOS_CLASS_DEFAULT : attribute.qualityOfService);
    if (!target) target = &standard;
    auto const kind = attribute.concurrent ? DispatchQueue::Kind::Concurrent : DispatchQueue::Kind::Serial;
    target->retain();
    return dispatch_queue_t::adopt(new DispatchQueue(kind, copyOfLabel(label), target));
}

/// The last reference is gone. A sync holds none: while one has the queue, or waits for it, the ending is left to it.
bool DispatchQueue::isToEnd() noexcept {
    auto bits = state_.load(std::memory_order_acquire);
    do
        if (bits & state::Suspended) endedWhileSuspended();
    while ((bits & ~state::Ended) &&
           !state_.compare_exchange_weak(bits, bits | state::Ended, std::memory_order_acq_rel, std::memory_order_acquire));
    return !(bits & ~state::Ended);
}

void DispatchQueue::endedWhileSuspended() noexcept { fatal("dispatch_suspend: the queue was released while suspended"); }

/// And then its target, if this queue held the last reference to that, and so on.
void DispatchQueue::end() noexcept {
    auto* queue = this;
    for (bool isLast = true; isLast;) {
        auto* const above = queue->target();
        auto* const context = queue->context_.load(std::memory_order_relaxed);
        auto const finalizer = queue->finalizer_.load(std::memory_order_relaxed);
        if (finalizer && context) above->submit(newItem([=] { finalizer(context); }));
        destroySpecifics(queue->specifics_.load(std::memory_order_relaxed));
        delete[] queue->label_;
        delete queue;
        queue = above;
        isLast = queue->dropReference();
    }
}

} // namespace Tessarin
