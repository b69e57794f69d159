#pragma once
#include <cstdint>

namespace Tessarin {
class DispatchQueue;
}

namespace Tessarin::engine {

class Worker;
struct Catch;
struct WorkItem;

/// One queue that the thread runs something for; the innermost is the current queue.
struct Frame {
    DispatchQueue* queue;
    Frame const* outer;
};

/// What an item that stands for a queue asks of the loop that ran it: to drain the queue, or to run one item of a concurrent
/// queue. The item itself does nothing else, so that a chain of queues that target one another needs no stack, however long it
/// is.
struct Step {
    DispatchQueue* queue = nullptr;
    WorkItem* item = nullptr; // null: drain
};

struct ThreadContext {
    Frame const* frames = nullptr;
    Step next; // taken by the loop at once
    Worker* worker = nullptr; // null but on the threads of pools
    /// While the timekeeper submits: the first queue that it makes runnable on a pool comes here.
    Catch* catching = nullptr;
    /// A waiting thread has got the queues that this worker held: leave them alone, back to the pool.
    bool chainPassedOn = false;
    bool isOfTheEngine = false; // started by it
    bool hasServedTimer = false; // the main thread, since its loop last asked
    enum class Role : std::uint8_t { Unknown, Main, Other } role = Role::Unknown;
};
extern constinit thread_local ThreadContext thisThread [[gnu::tls_model("initial-exec")]];

bool askWhetherMainThread() noexcept;
/// Whether this is the process's first thread.
inline bool isMainThread() noexcept {
    if (thisThread.role == ThreadContext::Role::Unknown) [[unlikely]]
        return askWhetherMainThread();
    return thisThread.role == ThreadContext::Role::Main;
}

class FrameScope {
public:
    explicit FrameScope(DispatchQueue& queue) noexcept : frame_{&queue, thisThread.frames} { thisThread.frames = &frame_; }
    FrameScope(FrameScope const&) = delete;
    FrameScope& operator=(FrameScope const&) = delete;
    ~FrameScope() { thisThread.frames = frame_.outer; }

    void moveTo(DispatchQueue& queue) noexcept { frame_.queue = &queue; }

private:
    Frame frame_;
};

/// Around every wait of the engine: tells the pool that this worker cannot run anything, so that another one steps in.
class BlockingScope {
public:
    BlockingScope() noexcept;
    BlockingScope(BlockingScope const&) = delete;
    BlockingScope& operator=(BlockingScope const&) = delete;
    ~BlockingScope();
};

} // namespace Tessarin::engine
