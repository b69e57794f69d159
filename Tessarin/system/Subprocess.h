#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/processes/SubprocessResult.h"
#include "Tessarin/platform/runtime/Ref.h"
#include "Tessarin/system/SubprocessOptions.h"

namespace Tessarin {

namespace processes {
class ChildProcess;
}// namespace processes

/// Another program that runs for this one. It gets its three standard streams and no other descriptor, no blocked signal, and a
/// process group of its own, so that its children end with it. Any thread.
///
///     auto const log = Subprocess::run({.program = "git", .arguments = {"log", "-1"}, .folder = project, .timeLimit = 10});
///     if (!log.isSuccess()) return show(log.errorsText());
///
/// However many are wanted at once, no more run than half of the descriptors that the application may open is enough for; the
/// others wait, first come, first served. So one that waits for another, to be its input, may wait for ever if there are
/// hundreds.
///
/// An application that ignores SIGCHLD, or reaps children that it did not start, takes the status of a subprocess away; see
/// `SubprocessResult::error`. One that forks and does not call exec can start no subprocess in the child.
class TESSARIN_API Subprocess {
public:
    Subprocess(Subprocess const&) = delete;
    Subprocess& operator=(Subprocess const&) = delete;
    virtual ~Subprocess();

    /// Runs it and waits for its end. Closures run on the queue meanwhile: with one that waits for this thread (see
    /// `queueWaitsForThisThread`) nobody would ever call them, and the result is the error EDEADLK. `queue` is not looked at when
    /// there are no closures. (Called on the pool's own threads with closures it keeps two of them busy; there are 512.)
    static SubprocessResult run(SubprocessOptions options);

    /// Starts it and returns; `completion` is called once, also when it could not be started. It goes on when nobody keeps the
    /// object, and when the application ends.
    static Ref<Subprocess> start(SubprocessOptions options, Closure<void(SubprocessResult const&)> completion = {});

    /// Ends it: SIGTERM to it and its children, and SIGKILL after the grace. It does not begin at all if it has not begun yet,
    /// and nothing happens if it has ended. Its completion comes all the same. (What has changed its user may not be sent
    /// signals; then it goes on.)
    void cancel();
    /// Sends it a signal, but not its children; false when it does not run or may not be sent signals.
    bool send(int signal);
    /// Whether it has begun and not ended.
    bool isRunning() const { return processIdentifier().has_value(); }
    std::optional<int> processIdentifier() const;

protected:
    Subprocess() = default;
    virtual void init(Ref<processes::ChildProcess> child);

private:
    Ref<processes::ChildProcess> child_; // constant after init
};

} // namespace Tessarin
