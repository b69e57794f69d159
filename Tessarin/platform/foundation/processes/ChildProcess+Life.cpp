// A child that runs, on the loop's thread.
#include "Tessarin/platform/foundation/processes/ChildProcessPrivate.h"

#include "Tessarin/platform/runtime/Hold.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <string>
#include <sys/wait.h>
#include <system_error>

namespace Tessarin::processes {
namespace {

/// Whose status is asked for: by descriptor, since a number may be another's once somebody else has reaped ours.
int askFor(Handle const& process, pid_t identifier, siginfo_t& status, int how) noexcept {
#ifdef __linux__
    if (process) {
        int const result = ::waitid(P_PIDFD, static_cast<id_t>(process.number()), &status, WEXITED | WNOHANG | how);
        if (result == 0 || errno != EINVAL) return result; // Linux 5.3 knows the descriptors, but not this question
    }
#else
    static_cast<void>(process);
#endif
    return ::waitid(P_PID, static_cast<id_t>(identifier), &status, WEXITED | WNOHANG | how);
}

Ref<NSError> takenStatus(std::string const& program) {
    auto const words = "The status of " + program + " is unknown, something else in this process has taken it: ";
    Dictionary details;
    details.append(NSLocalizedDescriptionKey, words + std::generic_category().message(ECHILD));
    return NSError::errorWithDomain(NSPOSIXErrorDomain, ECHILD, std::move(details));
}

} // namespace

void ChildProcess::enrol(Pipes& pipes) {
    self_ = shared_from_this();
    isRunning_ = true;
    timeLimit_ = grace_ = look_ = loop_->none();
    try {
        output_.begin(std::move(pipes.output.reading));
        errors_.begin(std::move(pipes.errors.reading));
        input_.begin(std::move(pipes.input.writing));
        if (request_.timeLimit) setDeadline(timeLimit_, *request_.timeLimit, &ChildProcess::runsOutOfTime);
    } catch (std::bad_alloc const&) {
        giveUp(ENOMEM);
    }
    if (isCancelled_.load()) stop(Stopped::Cancelled);
    watchEnd();
}

void ChildProcess::watchEnd() {
    if (end_.process && loop_->watch(end_.process.number(), ProcessLoop::For::Reading, end_) == 0) return;
    lookAgain(0.001);
}

void ChildProcess::mayHaveEnded() {
    if (lookForEnd()) return;
    // A debugger that traces it has not let go of it: the descriptor would knock on and on.
    loop_->unwatch(end_.process.number(), end_);
    lookAgain(0.001);
}

/// Without a descriptor of the process: rarer and rarer, until it is fifty times a second.
void ChildProcess::lookAgain(double seconds) {
    look_ = loop_->none();
    if (lookForEnd()) return;
    look_ = loop_->at(ProcessLoop::after(seconds), [this, seconds] { lookAgain(std::min(seconds * 2, 0.02)); });
}

void ChildProcess::stop(Stopped reason) {
    if (!isRunning_ || std::exchange(isStopping_, true)) return;
    (reason == Stopped::Cancelled ? result_.isCancelled : result_.isOutOfTime) = true;
    if (!(request_.grace > 0)) return kill();
    sendToGroup(SIGTERM);
    sendToGroup(SIGCONT); // one that is stopped would not hear of it
    setDeadline(grace_, request_.grace, &ChildProcess::kill);
}

void ChildProcess::kill() { sendToGroup(SIGKILL); }

void ChildProcess::giveUp(int problem) {
    if (!isRunning_) return;
    if (problem_ == 0) problem_ = problem; // the error is made at the end, when there may be memory again
    kill();
}

void ChildProcess::setDeadline(ProcessLoop::Deadline& deadline, double seconds, void (ChildProcess::*then)()) {
    deadline = loop_->at(ProcessLoop::after(seconds), [this, &deadline, then] {
        deadline = loop_->none();
        (this->*then)();
    });
}

void ChildProcess::forget(ProcessLoop::Deadline& deadline) {
    if (deadline != loop_->none()) loop_->forget(std::exchange(deadline, loop_->none()));
}

bool ChildProcess::lookForEnd() {
    siginfo_t status{};
    bool const isKnown = askFor(end_.process, identifier_, status, WNOWAIT) == 0; // only this thread changes the number
    if (isKnown && status.si_pid == 0) return false;
    end(isKnown ? &status : nullptr);
    return true;
}

void ChildProcess::end(siginfo_t const* status) {
    {
        Hold const hold(life_);
        // As long as it is not reaped, the number of its group is nobody else's; and just afterwards, when no process has it.
        bool const isOurs = status || (::kill(identifier_, 0) != 0 && errno == ESRCH);
        if (isOurs && hasOwnGroup_ && (request_.endsGroup || isStopping_)) ::kill(-identifier_, SIGKILL);
        siginfo_t reaped{};
        if (status) askFor(end_.process, identifier_, reaped, 0);
        identifier_ = 0;
    }
    if (end_.process) loop_->unwatch(end_.process.number(), end_);
    end_.process.close();
    for (auto* const deadline : {&timeLimit_, &grace_, &look_}) forget(*deadline);
    input_.close();
    output_.finish();
    errors_.finish();
    result_.output = output_.captured();
    result_.errors = errors_.captured();
    if (problem_ != 0) result_.error = NSError::errorWithErrno(problem_, request_.program);
    if (!status) {
        if (!result_.error) result_.error = takenStatus(request_.program);
    } else if (status->si_code == CLD_EXITED) {
        result_.exitStatus = status->si_status;
    } else {
        result_.signal = status->si_status;
    }
    isRunning_ = false;
    auto const self = std::move(self_);
    complete();
    ProcessTurns::shared().leave();
}

} // namespace Tessarin::processes
