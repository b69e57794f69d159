#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"

#include "Tessarin/platform/queues/DispatchSemaphore.h"

#include <condition_variable>
#include <list>
#include <mutex>

namespace Tessarin {
namespace {

[[maybe_unused]] auto const& registered = registerClass<NSOperationQueue>();

constinit thread_local NSOperationQueue const* atWorkHere = nullptr; // without a lane

} // namespace

struct NSOperationQueue::Workers {
    std::mutex mutex; // guards all of it
    std::condition_variable finished;
    std::int64_t limit = NSOperationQueueDefaultMaxConcurrentOperationCount;
    std::int64_t running = 0;  // workers under way
    std::int64_t starting = 0; // those of them that have not taken their first operation
    bool isHeld = false; // until a lane that was left has run empty
    std::list<Closure<void()>> pending; // an empty deque takes 600 bytes, and most queues have a lane
};

NSOperationQueue::NSOperationQueue() : workers_(std::make_unique<Workers>()) {}
NSOperationQueue::~NSOperationQueue() = default;

bool NSOperationQueue::isIdle() const { return workers_->running == 0 && workers_->pending.empty() && !workers_->isHeld; }

Ref<NSOperationQueue> const& NSOperationQueue::mainQueue() {
    static auto const& shared = *new Ref<NSOperationQueue>([] {
        auto queue = make<NSOperationQueue>(Serial::No);
        queue->workers_->limit = 1;
        queue->isMain_ = true;
        queue->useLane(dispatch_get_main_queue());
        return queue;
    }());
    return shared;
}

std::int64_t NSOperationQueue::maxConcurrentOperationCount() const {
    std::lock_guard const hold(workers_->mutex);
    return workers_->limit;
}

void NSOperationQueue::setMaxConcurrentOperationCount(std::int64_t count) {
    if (isMain_) return;
    if (count < 0) count = NSOperationQueueDefaultMaxConcurrentOperationCount;
    std::lock_guard const hold(workers_->mutex);
    if (count == workers_->limit) return;
    workers_->limit = count;
    if (usesLane_) return leaveLane();
    if (count == 1 && !lane_ && isIdle()) return useLane(dispatch_queue_create("NSOperationQueue", DISPATCH_QUEUE_SERIAL));
    startMore();
}

void NSOperationQueue::useLane(dispatch_queue_t lane) {
    lane_ = std::move(lane);
    usesLane_.store(true, std::memory_order_release);
}

void NSOperationQueue::leaveLane() {
    usesLane_ = false;
    workers_->isHeld = true;
    dispatch_async(lane_, [self = self<NSOperationQueue>()] {
        std::lock_guard const hold(self->workers_->mutex);
        self->workers_->isHeld = false;
        self->startMore();
        if (self->isIdle()) self->workers_->finished.notify_all();
    });
}

void NSOperationQueue::addOperation(Ref<NSOperation> operation) {
    addOperationWithBlock([operation = std::move(operation)] { operation->start(); });
}

void NSOperationQueue::addOperationWithBlock(Closure<void()> block) {
    if (usesLane_.load(std::memory_order_acquire)) return dispatch_async(lane_, std::move(block));
    std::lock_guard const hold(workers_->mutex);
    workers_->pending.push_back(std::move(block));
    startMore();
}

void NSOperationQueue::startMore() {
    if (workers_->isHeld) return;
    while (workers_->starting < static_cast<std::int64_t>(workers_->pending.size()) &&
           (workers_->limit < 0 || workers_->running < workers_->limit)) {
        ++workers_->running;
        ++workers_->starting;
        dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), [self = self<NSOperationQueue>()] { self->work(); });
    }
}

void NSOperationQueue::work() {
    std::unique_lock hold(workers_->mutex);
    --workers_->starting;
    atWorkHere = this;
    while (!workers_->pending.empty() && (workers_->limit < 0 || workers_->running <= workers_->limit)) {
        auto block = std::move(workers_->pending.front());
        workers_->pending.pop_front();
        hold.unlock();
        block();
        block = nullptr; // what it kept goes without the lock, too
        hold.lock();
    }
    atWorkHere = nullptr;
    --workers_->running;
    if (isIdle()) workers_->finished.notify_all();
}

void NSOperationQueue::addOperations(std::vector<Ref<NSOperation>> const& operations, WaitUntilFinished wait) {
    if (wait == WaitUntilFinished::Yes && operations.size() == 1) return runAndWait([&] { operations[0]->start(); });
    for (auto const& operation : operations) addOperation(operation);
    if (wait == WaitUntilFinished::No) return;
    for (auto const& operation : operations) operation->waitUntilFinished();
}

void NSOperationQueue::runAndWait(FunctionRef<void()> block) {
    if (usesLane_.load(std::memory_order_acquire)) return dispatch_sync(lane_, block);
    auto const done = dispatch_semaphore_create(0);
    addOperationWithBlock([&done, block] {
        auto const kept = done; // the waiting thread leaves as soon as it is woken
        block();
        dispatch_semaphore_signal(kept);
    });
    dispatch_semaphore_wait(done, DISPATCH_TIME_FOREVER);
}

void NSOperationQueue::waitUntilAllOperationsAreFinished() {
    if (usesLane_.load(std::memory_order_acquire)) return dispatch_sync(lane_, [] {});
    std::unique_lock hold(workers_->mutex);
    workers_->finished.wait(hold, [this] { return isIdle(); });
}

bool NSOperationQueue::hasOperations() const {
    if (usesLane_.load(std::memory_order_acquire)) return !queueIsIdle(lane_);
    std::lock_guard const hold(workers_->mutex);
    return !isIdle();
}

bool NSOperationQueue::runsHere() const {
    if (atWorkHere == this) return true;
    if (usesLane_.load(std::memory_order_acquire)) return queueIsHeld(lane_);
    std::lock_guard const hold(workers_->mutex);
    return lane_ && queueIsHeld(lane_); // an operation of before the lane was left
}

SelectorTable NSOperationQueue::selectors() {
    return {{"initWithSerial:"_sel, &NSOperationQueue::initWithSerial},
            {"setMaxConcurrentOperationCount:"_sel, &NSOperationQueue::setMaxConcurrentOperationCount}};
}

} // namespace Tessarin
