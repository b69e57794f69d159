#pragma once
#include "Tessarin/platform/foundation/processes/SpawnPrivate.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/Mutex.h"
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <poll.h>
#include <span>
#include <vector>

namespace Tessarin::processes {

/// Somebody who is told that his descriptor is ready, or has been closed at the other end.
class Watch {
public:
    virtual void ready() = 0;

protected:
    ~Watch() = default;
};

/// Talks to children, on one thread. It owns what it is told of: but for `post` everything here is called on that thread.
class ProcessLoop {
public:
    enum class For { Reading, Writing };
    using Deadlines = std::multimap<std::int64_t, Closure<void()>>; // by the monotonic clock's nanoseconds
    using Deadline = Deadlines::iterator;

    /// That of the thread which serves all children whose starters do not wait; made at the first call. Null, and an errno, while
    /// there is neither a descriptor nor a thread for it. Any thread.
    static ProcessLoop* current(int& problem);
    virtual ~ProcessLoop() = default;
    /// Runs the work on the thread, in the order of the calls. Any thread.
    void post(Closure<void()> work);

    /// 0, or an errno: no memory, or as many watches as the system allows.
    virtual int watch(int descriptor, For what, Watch& watch) = 0;
    virtual void unwatch(int descriptor, Watch& watch) = 0;
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

protected:
    /// Something has been posted where nothing was. Under the lock of what is posted.
    virtual void knock() noexcept = 0;
    void runPosted();
    void runDeadlines();
    bool hasDeadlines() const { return !deadlines_.empty(); }
    int patience() const; // milliseconds

private:
    static constexpr std::size_t scratchSize = 256 * 1024;

    Mutex mutex_;
    std::vector<Closure<void()>> posted_; // guarded by mutex_
    // The thread's own:
    std::unique_ptr<std::byte[]> scratch_;
    Deadlines deadlines_;
};

/// A thread's that waits for its own child, which so costs neither a descriptor nor a change of threads (benchmark "system").
class OwnProcessLoop final : public ProcessLoop {
public:
    OwnProcessLoop() noexcept { waits_.fill({.fd = -1, .events = 0, .revents = 0}); }
    void runUntil(bool const& isDone);
    int watch(int descriptor, For what, Watch& watch) override;
    void unwatch(int descriptor, Watch& watch) override;

private:
    void knock() noexcept override;
    void doRound();

    static constexpr std::size_t most = 4; // three streams, and the end
    std::array<Watch*, most> watches_ = {};
    std::array<pollfd, most> waits_ = {};
    std::atomic<std::uint32_t> knocks_ = 0;
};

} // namespace Tessarin::processes
