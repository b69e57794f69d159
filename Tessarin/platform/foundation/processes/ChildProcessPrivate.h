#pragma once
#include "Tessarin/platform/foundation/processes/ProcessRequestPrivate.h"
#include "Tessarin/platform/foundation/processes/ProcessStreamsPrivate.h"
#include <csignal>
#include <list>

namespace Tessarin::processes {

/// One child from the request to the result: waits its turn, is started, talked to, ended and reaped.
/// The first group may be called from any thread; the rest is the starter's, then the loop's. It keeps itself while it lives.
class ChildProcess final : public std::enable_shared_from_this<ChildProcess>, private StreamOwner {
public:
    enum class Where { Here, Elsewhere };

    explicit ChildProcess(ProcessRequest request);
    /// Starts it, now or when it has its turn: on this thread if it can be now, or on another.
    void begin(Where where);
    /// SIGTERM to its group, SIGKILL after the grace; if it has not begun it never will.
    void cancel();
    /// False when it does not run, or is not to be sent this.
    bool send(int signal);
    /// 0 before it begins and after its end.
    pid_t identifier();

private:
    friend class ProcessTurns;
    using Place = std::list<Ref<ChildProcess>>::iterator;
    struct Pipes {
        Pipe input, output, errors;
        Handle file;
    };
    enum class Stopped { Cancelled, OutOfTime };

    void launch();
    SpawnProblem tryLaunch(Pipes& pipes);
    SpawnProblem start(Pipes& pipes);
    void neverBegan(int code, std::string const& about);
    void complete();

    // On the loop's thread:
    void enrol(Pipes& pipes);
    void watchEnd();
    void mayHaveEnded();
    void lookAgain(double seconds);
    void stop(Stopped reason);
    void kill();
    /// Whether it has ended, and then it is over.
    bool lookForEnd();
    void end(siginfo_t const* status);
    bool sendToGroup(int signal);
    void setDeadline(ProcessLoop::Deadline& deadline, double seconds, void (ChildProcess::*then)());
    void forget(ProcessLoop::Deadline& deadline);
    void runsOutOfTime() { stop(Stopped::OutOfTime); }

    ProcessLoop& loop() override { return *loop_; }
    dispatch_queue_t const& queue() override { return request_.queue; }
    std::shared_ptr<void> keep() override { return shared_from_this(); }
    void giveUp(int problem) override;

    /// Told of the child's end.
    struct End final : Watch {
        explicit End(ChildProcess& child) : child_(child) {}
        void ready() override { child_.mayHaveEnded(); }
        ChildProcess& child_;
        Handle process; // a descriptor of the process, where the system has them
    };

    ProcessRequest request_;
    SubprocessResult result_;
    ProcessLoop* loop_ = nullptr;
    InputStream input_;
    OutputStream output_, errors_;
    End end_;
    bool hasOwnGroup_ = true; // guarded by life_ as long as it is being started
    bool isRunning_ = false;
    bool isStopping_ = false;
    int problem_ = 0; // it was given up for this
    ProcessLoop::Deadline timeLimit_, grace_, look_;
    Ref<ChildProcess> self_;
    std::atomic<bool> isCancelled_ = false;
    std::optional<Place> place_; // among those that wait, guarded by the lock of the turns
    Mutex life_;
    pid_t identifier_ = 0; // until it is reaped: nobody else has this number so long; guarded by life_
};

/// Descriptors are few: as many children run at once as half of what the application may open is enough for, or as there turned
/// out to be; the others wait, first come, first served. Any thread.
class ProcessTurns {
public:
    static ProcessTurns& shared();
    /// Whether it may begin; it is kept for later otherwise.
    bool take(Ref<ChildProcess> const& child);
    enum class Verdict { WaitsForOthers, IsAlone };
    /// There was no descriptor for it after all. Nobody but another child would give one back.
    Verdict postpone(Ref<ChildProcess> const& child);
    void leave();
    /// Whether it was waiting, which it does no longer.
    bool forget(ChildProcess& child);
    /// How many the descriptors are enough for.
    static std::size_t affordable() noexcept;

private:
    using Children = std::vector<Ref<ChildProcess>>;
    Ref<ChildProcess> takeFirst();
    static void startAll(Children& children);
    void retryLater();
    void retry();
    bool isFree() const;
    void wait(Ref<ChildProcess> const& child, ChildProcess::Place before);

    Mutex mutex_; // guards the rest
    std::list<Ref<ChildProcess>> waiting_;
    std::size_t running_ = 0;
    std::size_t most_ = SIZE_MAX; // as it turned out; until nobody waits
    bool retries_ = false;        // `retry` will come
};

} // namespace Tessarin::processes
