#include "Tessarin/system/Subprocess.h"

#include "Tessarin/platform/foundation/processes/ChildProcessPrivate.h"
#include "Tessarin/platform/foundation/text/Path.h"
#include "Tessarin/platform/queues/DispatchSemaphore.h"
#include "Tessarin/platform/queues/Queue+Waiting.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <unistd.h>

namespace Tessarin {
namespace {

using processes::ChildProcess;
using processes::ProcessRequest;

std::string_view nameIn(std::string_view variable) { return variable.substr(0, variable.find('=')); }

std::vector<std::string> variables(SubprocessEnvironment const& environment) {
    std::vector<std::string> all;
    if (environment.base == SubprocessEnvironment::Base::Inherited)
        for (char** each = environ; each && *each; ++each) all.emplace_back(*each);
    for (auto const& [name, value] : environment.changes) {
        std::erase_if(all, [&name](auto const& each) { return nameIn(each) == name; });
        if (value) all.push_back(name + "=" + *value);
    }
    return all;
}

/// A name that would be read as another one, or as none.
bool hasIllName(SubprocessEnvironment const& environment) {
    return std::ranges::any_of(environment.changes, [](auto const& change) {
        return change.first.empty() || change.first.find('=') != change.first.npos;
    });
}

bool calls(SubprocessOutput const& output) {
    return output.kind == SubprocessOutput::Kind::Lines || output.kind == SubprocessOutput::Kind::Pieces;
}
bool hasClosures(SubprocessOptions const& options) {
    return calls(options.output) || calls(options.errors) || options.input.kind == SubprocessInput::Kind::Pieces;
}

dispatch_queue_t serialQueue(dispatch_queue_t const& target) {
    auto queue = dispatch_queue_create("subprocess", DISPATCH_QUEUE_SERIAL);
    if (target) dispatch_set_target_queue(queue, target);
    return queue;
}

/// What means something else as soon as the application changes its folder, for a start on another thread.
void fixPaths(ProcessRequest& request) {
    request.here = processes::currentFolder();
    if (request.here.empty()) return;
    for (auto* const path : {&request.folder, &request.input.path})
        if (!Path::isAbsolutePath(*path)) *path = Path::appendingPathComponent(request.here, *path);
}

bool isRelativePath(std::string const& program) { return !Path::isAbsolutePath(program) && program.find('/') != program.npos; }

ProcessRequest requestOf(SubprocessOptions&& options) {
    // An output that goes nowhere else cannot go with itself.
    if (options.output.kind == SubprocessOutput::Kind::WithOutput) options.output = SubprocessOutput::captured();
    auto program = std::move(options.program).get();
    auto here = isRelativePath(program) ? processes::currentFolder() : "";
    return {.program = std::move(program),
            .arguments = std::move(options.arguments),
            .environment = variables(options.environment),
            .folder = std::move(options.folder),
            .here = std::move(here),
            .searchPath = processes::searchPath(),
            .input = std::move(options.input),
            .output = std::move(options.output),
            .errors = std::move(options.errors),
            .timeLimit = options.timeLimit,
            .grace = options.grace,
            .endsGroup = options.leftovers == SubprocessLeftovers::Kill,
            .queue = {},
            .completion = {}};
}

/// While other threads do the work.
SubprocessResult runBeside(SubprocessOptions options) {
    auto const queue = serialQueue(options.queue);
    auto request = requestOf(std::move(options));
    request.queue = queue;
    auto const done = dispatch_semaphore_create(0);
    SubprocessResult result;
    request.completion = [&result, done](SubprocessResult&& ended) {
        result = std::move(ended);
        dispatch_semaphore_signal(done);
    };
    std::make_shared<ChildProcess>(std::move(request))->begin(ChildProcess::Where::Here);
    dispatch_semaphore_wait(done, DISPATCH_TIME_FOREVER);
    return result;
}

/// This thread does it.
SubprocessResult runHere(SubprocessOptions options) {
    processes::OwnProcessLoop loop;
    auto request = requestOf(std::move(options));
    request.loop = &loop;
    SubprocessResult result;
    bool isDone = false;
    request.completion = [&result, &isDone](SubprocessResult&& ended) {
        result = std::move(ended);
        isDone = true;
    };
    std::make_shared<ChildProcess>(std::move(request))->begin(ChildProcess::Where::Here);
    loop.runUntil(isDone);
    return result;
}

SubprocessResult refused(int code, std::string const& program) { return {.error = NSError::errorWithErrno(code, program)}; }

} // namespace

Subprocess::~Subprocess() = default;
void Subprocess::init(Ref<ChildProcess> child) { child_ = std::move(child); }

SubprocessResult Subprocess::run(SubprocessOptions options) {
    if (hasIllName(options.environment)) return refused(EINVAL, options.program);
    bool const needsQueue = hasClosures(options);
    if (needsQueue && options.queue && queueWaitsForThisThread(options.queue)) return refused(EDEADLK, options.program);
    return needsQueue ? runBeside(std::move(options)) : runHere(std::move(options));
}

Ref<Subprocess> Subprocess::start(SubprocessOptions options, Closure<void(SubprocessResult const&)> completion) {
    bool const isIll = hasIllName(options.environment);
    auto const queue = serialQueue(options.queue);
    auto request = requestOf(std::move(options));
    fixPaths(request);
    request.queue = queue;
    if (isIll) request.environment.emplace_back(1, '\0'); // which the start refuses
    request.completion = [completion = std::move(completion)](SubprocessResult&& result) {
        if (completion) completion(result);
    };
    auto child = std::make_shared<ChildProcess>(std::move(request));
    auto subprocess = make<Subprocess>(child);
    child->begin(ChildProcess::Where::Elsewhere);
    return subprocess;
}

void Subprocess::cancel() { child_->cancel(); }
bool Subprocess::send(int signal) { return child_->send(signal); }

std::optional<int> Subprocess::processIdentifier() const {
    auto const identifier = child_->identifier();
    return identifier > 0 ? std::optional<int>(identifier) : std::nullopt;
}

} // namespace Tessarin
