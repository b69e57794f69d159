#include "Tessarin/platform/foundation/processes/ChildProcessPrivate.h"

#include "Tessarin/platform/runtime/Hold.h"

#include <cerrno>
#include <csignal>
#include <new>
#include <unistd.h>

namespace Tessarin::processes {

using InputKind = SubprocessInput::Kind;
using OutputKind = SubprocessOutput::Kind;

ChildProcess::ChildProcess(ProcessRequest request)
    : request_(std::move(request)),
      input_(*this, request_.input),
      output_(*this, request_.output),
      errors_(*this, request_.errors),
      end_(*this) {}

void ChildProcess::begin(Where where) {
    if (!ProcessTurns::shared().take(shared_from_this())) return;
    if (where == Where::Here) return launch();
    // Starting a program may wait for a slow disk.
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), [self = shared_from_this()] { self->launch(); });
}

void ChildProcess::launch() {
    for (bool wasAlone = false;;) {
        Pipes pipes;
        auto problem = SpawnProblem{isCancelled_.load() ? ECANCELED : 0, request_.program};
        if (problem.code == 0) problem = tryLaunch(pipes);
        if (problem.code == 0) return;
        if (isShortage(problem.code)) {
            pipes = {};
            if (ProcessTurns::shared().postpone(shared_from_this()) == ProcessTurns::Verdict::WaitsForOthers) {
                // A cancellation meanwhile did not find it among those that wait.
                if (isCancelled_.load() && ProcessTurns::shared().forget(*this)) neverBegan(ECANCELED, request_.program);
                return;
            }
            if (!std::exchange(wasAlone, true)) continue; // others have just given up theirs
        }
        neverBegan(problem.code, problem.about);
        return ProcessTurns::shared().leave();
    }
}

SpawnProblem ChildProcess::tryLaunch(Pipes& pipes) {
    try {
        auto kept = std::make_shared<Pipes>(); // what it takes later is there before the child is
        if (auto problem = start(pipes); problem.code != 0) return problem;
        auto* const loop = loop_; // the child may end before the next line does
        *kept = std::move(pipes);
        loop->post([self = shared_from_this(), kept] { self->enrol(*kept); });
        return {};
    } catch (std::bad_alloc const&) {
        return {ENOMEM, {}};
    }
}

SpawnProblem ChildProcess::start(Pipes& pipes) {
    SpawnPlan plan{.arguments = request_.arguments, .environment = request_.environment, .folder = request_.folder};
    plan.arguments.insert(plan.arguments.begin(), request_.program);
    if (auto problem = findProgram(request_.program, request_.searchPath, request_.here, plan.path); problem.code != 0)
        return problem;

    int code = 0;
    loop_ = request_.loop ? request_.loop : ProcessLoop::current(code);
    if (!loop_) return {code, request_.program};
    auto const output = [&](Pipe& pipe, OutputKind kind) {
        if (kind == OutputKind::Inherited) return SpawnPlan::inherited;
        if (kind == OutputKind::Discarded || code != 0) return SpawnPlan::nothing;
        code = pipe.open(Pipe::Ours::Reading);
        return pipe.writing.number();
    };
    switch (request_.input.kind) {
    case InputKind::Nothing: break;
    case InputKind::Inherited:
        plan.standard[0] = SpawnPlan::inherited;
        plan.hasOwnGroup = ::isatty(STDIN_FILENO) == 0; // another group may not read from the terminal, and would be stopped
        break;
    case InputKind::File:
        if (int const problem = openFile(pipes.file, request_.input.path)) return {problem, request_.input.path};
        plan.standard[0] = pipes.file.number();
        break;
    case InputKind::Data:
    case InputKind::Pieces: code = pipes.input.open(Pipe::Ours::Writing); plan.standard[0] = pipes.input.reading.number();
    }
    plan.standard[1] = output(pipes.output, request_.output.kind);
    bool const isMerged = request_.errors.kind == OutputKind::WithOutput;
    plan.standard[2] = isMerged ? plan.standard[1] : output(pipes.errors, request_.errors.kind);
    if (isMerged && plan.standard[1] == SpawnPlan::inherited) plan.standard[2] = 1;
    if (code != 0) return {code, request_.program};

    pid_t child = 0;
    if (auto problem = spawn(plan, child); problem.code != 0) return problem;
    {
        Hold const hold(life_);
        identifier_ = child;
        hasOwnGroup_ = plan.hasOwnGroup;
    }
    end_.process = openProcess(child);
    for (auto* const given : {&pipes.input.reading, &pipes.output.writing, &pipes.errors.writing, &pipes.file}) given->close();
    return {};
}

void ChildProcess::neverBegan(int code, std::string const& about) {
    result_.isCancelled = isCancelled_.load();
    result_.error = NSError::errorWithErrno(result_.isCancelled ? ECANCELED : code, about);
    if (!request_.loop) return complete();
    request_.loop->post([self = shared_from_this()] { self->complete(); });
}

void ChildProcess::complete() {
    if (!request_.queue) return request_.completion(std::move(result_));
    dispatch_async(request_.queue, [self = shared_from_this()] {
        auto const completion = std::move(self->request_.completion);
        { // What the closures hold goes where they ran, and before anybody hears of the end.
            auto const input = std::move(self->request_.input);
            auto const output = std::move(self->request_.output), errors = std::move(self->request_.errors);
        }
        if (completion) completion(std::move(self->result_));
    });
}

void ChildProcess::cancel() {
    isCancelled_.store(true);
    if (ProcessTurns::shared().forget(*this)) return neverBegan(ECANCELED, request_.program);
    int problem = 0;
    if (auto* const loop = ProcessLoop::current(problem))
        loop->post([self = shared_from_this()] { self->stop(Stopped::Cancelled); });
}

bool ChildProcess::send(int signal) {
    Hold const hold(life_);
    return identifier_ > 0 && ::kill(identifier_, signal) == 0;
}

bool ChildProcess::sendToGroup(int signal) {
    Hold const hold(life_);
    if (identifier_ <= 0) return false;
    if (hasOwnGroup_ && ::kill(-identifier_, signal) == 0) return true;
    return ::kill(identifier_, signal) == 0; // it may have left its group
}

pid_t ChildProcess::identifier() {
    Hold const hold(life_);
    return identifier_;
}

} // namespace Tessarin::processes
