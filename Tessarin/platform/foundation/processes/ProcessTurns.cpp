#include "Tessarin/platform/foundation/processes/ChildProcessPrivate.h"
#include "Tessarin/platform/runtime/Hold.h"

#include <algorithm>
#include <sys/resource.h>

namespace Tessarin::processes {
namespace {

/// Three streams and the process itself, of half the descriptors: the other half is the application's.
std::size_t affordable() noexcept {
    constexpr rlim_t share = 2, each = 4;
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return SIZE_MAX;
    return static_cast<std::size_t>(std::max<rlim_t>(limit.rlim_cur / share / each, 1));
}

} // namespace

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
    return Verdict::WaitsForOthers;
}

void ProcessTurns::leave() {
    std::vector<Ref<ChildProcess>> next;
    {
        Hold const hold(mutex_);
        --running_;
        for (; !waiting_.empty() && isFree(); ++running_) {
            next.push_back(std::move(waiting_.front()));
            next.back()->place_.reset();
            waiting_.pop_front();
        }
        if (waiting_.empty()) most_ = SIZE_MAX;
    }
    for (auto& child : next)
        dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), [child = std::move(child)] { child->launch(); });
}

bool ProcessTurns::forget(ChildProcess& child) {
    Hold const hold(mutex_);
    if (!child.place_) return false;
    waiting_.erase(*child.place_); // the caller keeps it
    child.place_.reset();
    return true;
}

} // namespace Tessarin::processes
