#include "Tessarin/store/ImportGatePrivate.h"

#include <utility>

namespace Tessarin {

ImportGate::ImportGate(dispatch_queue_t queue, Ref<NSManagedObjectContext> root, std::size_t most)
    : queue_(std::move(queue)), root_(std::move(root)), most_(most) {}

void ImportGate::add(Closure<void()> start) {
    change([this, start = std::move(start)]() mutable { (holdsBack_ ? later_ : waiting_).push_back(std::move(start)); });
}

void ImportGate::hasEnded() {
    change([this] { --running_; });
}

void ImportGate::rootHasSaved() {
    if (most_ != 0) change([] {});
}

void ImportGate::saveHasFailed() {
    change([this] { startsAlways_ = startsAlways_ || holdsBack_; });
}

void ImportGate::holdBack(Closure<void()> whenIdle) {
    change([this, whenIdle = std::move(whenIdle)]() mutable {
        holdsBack_ = true;
        whenIdle_ = std::move(whenIdle);
    });
}

void ImportGate::goOn(Start how) {
    change([this, how] {
        holdsBack_ = false;
        startsAlways_ = how == Start::Always;
        while (!later_.empty()) {
            waiting_.push_back(std::move(later_.front()));
            later_.pop_front();
        }
    });
}

void ImportGate::change(Closure<void()> step) {
    dispatch_async(queue_, [gate = shared_from_this(), step = std::move(step)] {
        step();
        gate->startWhatMay();
    });
}

bool ImportGate::mayStart() const { return most_ == 0 || startsAlways_ || running_ + root_->pendingSaves() < most_; }

void ImportGate::startWhatMay() {
    while (!waiting_.empty() && mayStart()) {
        ++running_;
        std::exchange(waiting_.front(), {})();
        waiting_.pop_front();
    }
    if (whenIdle_ && running_ == 0 && waiting_.empty()) std::exchange(whenIdle_, {})();
}

} // namespace Tessarin
