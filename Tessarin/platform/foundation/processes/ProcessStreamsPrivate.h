#pragma once
#include "Tessarin/platform/foundation/processes/ProcessLoopPrivate.h"
#include "Tessarin/platform/foundation/processes/SubprocessStreams.h"
#include "Tessarin/platform/queues/Queue.h"
#include <atomic>

namespace Tessarin::processes {

/// What the streams of a child need of it. On the loop's thread.
class StreamOwner {
public:
    virtual ProcessLoop& loop() = 0;
    virtual dispatch_queue_t const& queue() = 0;
    /// Keeps the child, and so its streams.
    virtual std::shared_ptr<void> keep() = 0;
    /// Ends the child with this error.
    virtual void giveUp(int problem) = 0;

protected:
    ~StreamOwner() = default;
};

/// Writes what the child reads.
class InputStream final : public Watch {
public:
    InputStream(StreamOwner& owner, SubprocessInput& input) : owner_(owner), input_(input) {}
    void begin(Handle pipe);
    void ready() override;
    void close();

private:
    void awaitRoom();
    void askForPiece();
    void take(std::optional<NSData> piece);

    StreamOwner& owner_;
    SubprocessInput& input_;
    Handle pipe_;
    std::size_t written_ = 0; // of input_.bytes
    bool isWatched_ = false;
};

/// Reads what the child writes: keeps it, or hands it on to the queue, which may lag behind only so far.
class OutputStream final : public Watch {
public:
    OutputStream(StreamOwner& owner, SubprocessOutput& output) : owner_(owner), output_(output) {}
    void begin(Handle pipe);
    void ready() override;
    /// The child has ended: reads what the pipe still holds, and no more.
    void finish();
    /// Once, after `finish`.
    NSData captured() { return NSData{std::move(captured_)}; }

private:
    static constexpr std::size_t mostUnderWay = std::size_t{1} << 20; // bytes handed on that nobody has looked at

    void close();
    void watch();
    void unwatch();
    void readTurn();
    void readRest();
    void giveUp(int problem);
    void readPart(std::span<std::byte> room, bool& goesOn);
    void take(std::span<std::byte const> bytes);
    void capture(std::span<std::byte const> bytes);
    void handOn(std::span<std::byte const> bytes);
    void wasLookedAt(std::size_t size); // on the queue, as the next two
    void splitLines(std::string_view text);
    void handPartsOn(std::size_t most);
    void endLines();

    StreamOwner& owner_;
    SubprocessOutput& output_;
    Handle pipe_;
    bool isWatched_ = false;
    bool isLarge_ = false; // the pipe
    bool isGivenUp_ = false;
    std::vector<std::byte> captured_;
    std::atomic<std::size_t> underWay_ = 0;
    std::atomic<bool> isPaused_ = false;
    std::string line_; // begun; the queue's
};

} // namespace Tessarin::processes
