#include "Tessarin/store/ImportGatePrivate.h"

#include <utility>

namespace Tessarin {

ImportGate::ImportGate(dispatch_queue_t queue, Ref<NSManagedObjectContext> root, std::size_t most)
    : queue_(std::move(queue)), root_(std::move(root)), most_(most) {}

void ImportGate::add(Closure<void()> start) {
    change([this, start = std::move(start)]() mutable { waiting_.push_back(std::move(start)); });
}

void ImportGate::hasEnded() {
    change([this] { --running_; });
}

void ImportGate::rootHasSaved() {
    if (most_ != 0) change([] {});
}

void ImportGate::change(Closure<void()> step) {
    dispatch_async(queue_, [gate = shared_from_this(), step = std::move(step)] {
        step();
        gate->startWhatMay();
    });
}

void ImportGate::startWhatMay() {
    while (!waiting_.empty() && (most_ == 0 || running_ + root_->pendingSaves() < most_)) {
        ++running_;
        std::exchange(waiting_.front(), {})();
        waiting_.pop_front();
    }
}

} // namespace Tessarin
