#include "Tessarin/platform/foundation/processes/ChildProcessPrivate.h"
#include "Tessarin/platform/queues/Dispatch.h"
#include "Tessarin/platform/runtime/Hold.h"

#include <algorithm>
#include <sys/resource.h>
#include <utility>

namespace Tessarin::processes {

/// Three streams and the process itself, of half the descriptors: the other half is the application's.
std::size_t ProcessTurns::affordable() noexcept {
    constexpr rlim_t share = 2, each = 4;
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return SIZE_MAX;
    return static_cast<std::size_t>(std::max<rlim_t>(limit.rlim_cur / share / each, 1));
}

ProcessTurns& ProcessTurns::shared() {
    static auto& turns = *new ProcessTurns;
    return turns;
}

bool ProcessTurns::isFree() const { return running_ == 0 || running_ < std::min(affordable(), most_); }

void ProcessTurns::wait(Ref<ChildProcess> const& child, ChildProcess::Place before) {
    child->place_ = waiting_.insert(before, child);
}

bool ProcessTurns::take(Ref<ChildProcess> const& child) {
    Hold const hold(mutex_);
    if (waiting_.empty() && isFree()) return ++running_ > 0;
    wait(child, waiting_.end());
    return false;
}

ProcessTurns::Verdict ProcessTurns::postpone(Ref<ChildProcess> const& child) {
    Hold const hold(mutex_);
    if (running_ == 1) return Verdict::IsAlone;
    most_ = --running_;
    wait(child, waiting_.begin());
    if (!std::exchange(retries_, true)) retryLater();
    return Verdict::WaitsForOthers;
}

/// The application may give descriptors back long before a child ends.
void ProcessTurns::retryLater() {
    static constexpr std::int64_t pause = 100'000'000; // nanoseconds
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, pause), dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), [this] { retry(); });
}

void ProcessTurns::retry() {
    Children next;
    {
        Hold const hold(mutex_);
        retries_ = !waiting_.empty();
        if (!retries_) return;
        most_ = running_ + 1;
        if (isFree()) next.push_back(takeFirst());
        retryLater();
    }
    startAll(next);
}

void ProcessTurns::leave() {
    Children next;
    {
        Hold const hold(mutex_);
        --running_;
        while (!waiting_.empty() && isFree()) next.push_back(takeFirst());
        if (waiting_.empty()) most_ = SIZE_MAX;
    }
    startAll(next);
}

Ref<ChildProcess> ProcessTurns::takeFirst() {
    auto child = std::move(waiting_.front());
    child->place_.reset();
    waiting_.pop_front();
    ++running_;
    return child;
}

/// On the thread that waits for the child, or that serves all: those of the pool may all be waiting for children themselves.
void ProcessTurns::startAll(Children& children) {
    for (auto& child : children) {
        int problem = 0;
        auto* const loop = child->request_.loop ? child->request_.loop : ProcessLoop::current(problem);
        auto start = [child = std::move(child)] { child->launch(); };
        if (loop)
            loop->post(std::move(start));
        else
            dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), std::move(start));
    }
}

bool ProcessTurns::forget(ChildProcess& child) {
    Hold const hold(mutex_);
    if (!child.place_) return false;
    waiting_.erase(*child.place_); // the caller keeps it
    child.place_.reset();
    if (waiting_.empty()) most_ = SIZE_MAX;
    return true;
}

} // namespace Tessarin::processes
