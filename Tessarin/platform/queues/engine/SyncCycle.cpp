#include "Tessarin/platform/queues/engine/SyncCycle.h"

#include "Tessarin/platform/queues/engine/Waiter.h"
#include <mutex>
#include <string>
#include <unistd.h>

namespace Tessarin::engine {
namespace {

constinit Lock cyclesLock;
constinit SyncCycle* sleepers = nullptr; // guarded by cyclesLock, as are their links and marks

std::string nameOf(DispatchQueue const& queue) {
    if (queue.isMain()) return "the main queue";
    return *queue.label() ? "\"" + std::string(queue.label()) + "\"" : "a queue without a label";
}

} // namespace

SyncCycle::SyncCycle(Waiter const& waiter) noexcept : waiter_(waiter) {
    std::lock_guard const hold(cyclesLock);
    next_ = sleepers;
    sleepers = this;
}

SyncCycle::~SyncCycle() {
    std::lock_guard const hold(cyclesLock);
    auto** link = &sleepers;
    while (*link != this) link = &(*link)->next_;
    *link = next_;
}

bool SyncCycle::holds(DispatchQueue const& wanted) const noexcept {
    if (wanted.isMain() && isMain_) return true;
    for (auto const* frame = frames_; frame; frame = frame->outer)
        for (auto const* queue = frame->queue; queue; queue = queue->target())
            if (queue == &wanted) return true;
    // A sync on its way up through the targets holds those that lie behind it.
    for (auto const* queue = &waiter_.queue; queue && queue != waiter_.level; queue = queue->target())
        if (queue == &wanted) return true;
    return false;
}

/// Who sleeps and has what this one sleeps for; itself first.
SyncCycle* SyncCycle::nextInCycle() const noexcept {
    if (holds(*waiter_.level)) return const_cast<SyncCycle*>(this);
    for (auto* other = sleepers; other; other = other->next_)
        if (other->holds(*waiter_.level)) return other;
    return nullptr;
}

void SyncCycle::tellIfClosed() noexcept {
    std::string text;
    {
        std::lock_guard const hold(cyclesLock);
        if (isTold_) return;
        std::size_t count = 0;
        for (auto const* sleeper = sleepers; sleeper; sleeper = sleeper->next_) ++count;
        auto const* last = nextInCycle();
        for (std::size_t steps = 0; last && last != this && steps < count; ++steps) last = last->nextInCycle();
        if (last != this) return; // no cycle, or one that this sync only waits for
        text = "A dispatch_sync never returns:";
        auto* member = this;
        do {
            auto const* const inside = member->frames_ ? member->frames_->queue : nullptr;
            text += (member == this ? " " : "; ") +
                    (inside ? nameOf(*inside) : std::string(member->isMain_ ? "the main thread" : "a thread without a queue")) +
                    " waits for " + nameOf(*member->waiter_.level);
            member->isTold_ = true;
            member = member->nextInCycle();
        } while (member != this);
        text += ". Ask queueIsHeld before, or use dispatch_async.\n";
    }
    static_cast<void>(!::write(STDERR_FILENO, text.data(), text.size()));
}

} // namespace Tessarin::engine
