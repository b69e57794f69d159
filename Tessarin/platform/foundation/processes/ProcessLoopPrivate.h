#pragma once
#include "Tessarin/platform/foundation/processes/SpawnPrivate.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/Mutex.h"
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <vector>

struct epoll_event;

namespace Tessarin::processes {

/// Somebody who is told that his descriptor is ready, or has been closed at the other end.
class Watch {
public:
    virtual void ready() = 0;

protected:
    ~Watch() = default;
};

/// Talks to children: the one thread that does so for all, or one that waits for its own. It owns what it is told of: but for
/// `post`, `current` and `make`, everything here is called on it.
class ProcessLoop {
public:
    enum class For { Reading, Writing };
    using Deadlines = std::multimap<std::int64_t, Closure<void()>>; // by the monotonic clock's nanoseconds
    using Deadline = Deadlines::iterator;

    /// Makes it at the first call. Null, and an errno, while there is neither a descriptor nor a thread for it.
    static ProcessLoop* current(int& problem);
    /// One for this thread, which calls `runUntil`: a child that its starter waits for costs no change of threads (benchmark
    /// "system").
    static std::unique_ptr<ProcessLoop> makeOwn(int& problem);
    ~ProcessLoop();
    void runUntil(bool const& isDone);
    /// Runs the work on the thread, in the order of the calls. Any thread.
    void post(Closure<void()> work);

    /// 0, or an errno: no memory, or as many watches as the system allows.
    int watch(int descriptor, For what, Watch& watch);
    void unwatch(int descriptor, Watch& watch);
    Deadline at(std::int64_t moment, Closure<void()> work) { return deadlines_.emplace(moment, std::move(work)); }
    void forget(Deadline deadline) { deadlines_.erase(deadline); }
    Deadline none() { return deadlines_.end(); }
    /// Room to read into; what stands there is overwritten by the next.
    std::span<std::byte> scratch() {
        if (!scratch_) scratch_.reset(new std::byte[scratchSize]);
        return {scratch_.get(), scratchSize};
    }

    static std::int64_t now() noexcept;
    /// So many seconds from now; never for what does not fit, or is no number.
    static std::int64_t after(double seconds) noexcept;

private:
    static constexpr std::size_t scratchSize = 256 * 1024;

    ProcessLoop(Handle events, Handle knocks);
    static std::unique_ptr<ProcessLoop> make(int& problem);
    int startThread();
    static void* enter(void* self);
    void doRound();
    void runPosted();
    void runDeadlines();
    int patience() const; // milliseconds

    Handle const events_, knocks_;
    bool isOwn_ = false;
    Mutex mutex_;
    std::vector<Closure<void()>> posted_; // guarded by mutex_
    // The thread's own:
    std::unique_ptr<std::byte[]> scratch_;
    Deadlines deadlines_;
    std::span<epoll_event> batch_; // what it is going through
};

} // namespace Tessarin::processes
