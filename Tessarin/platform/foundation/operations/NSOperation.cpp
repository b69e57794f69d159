#include "Tessarin/platform/foundation/operations/NSOperation.h"

#include "Tessarin/platform/runtime/Fatal.h"

namespace Tessarin {

void NSOperation::start() {
    auto ready = State::Ready;
    if (!state_.compare_exchange_strong(ready, State::Executing)) fatal("an operation was started twice");
    auto const kept = self<NSOperation>(); // who waits for the end may drop the last reference
    if (!isCancelled_) main();
    auto const completion = std::move(completion_);
    state_ = State::Finished;
    state_.notify_all();
    if (completion) completion();
}

void NSOperation::waitUntilFinished() const {
    for (auto state = state_.load(); state != State::Finished; state = state_.load()) state_.wait(state);
}

Ref<NSBlockOperation> NSBlockOperation::blockOperationWithBlock(Closure<void()> block) {
    return make<NSBlockOperation>(std::move(block));
}

void NSBlockOperation::init(Closure<void()> block) {
    NSObject::init();
    block_ = std::move(block);
}

void NSBlockOperation::main() {
    if (block_) block_();
}

} // namespace Tessarin
