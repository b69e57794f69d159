#pragma once
#include "Tessarin/platform/foundation/processes/SubprocessStreams.h"
#include "Tessarin/platform/queues/Queue.h"
#include "Tessarin/platform/runtime/Required.h"
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Tessarin {

/// The variables that a subprocess gets: the application's as they are at the start, or none; then the changes in their order,
/// where an absent value removes the variable.
struct SubprocessEnvironment {
    enum class Base { Inherited, Empty };
    Base base = Base::Inherited;
    std::vector<std::pair<std::string, std::optional<std::string>>> changes = {};
};

/// What becomes of the processes that a subprocess has started, and that are still there when it has ended. Those that left its
/// process group, as services do, are not meant; nobody waits for what any of them writes.
enum class SubprocessLeftovers { Kill, LetLive };

/// How a program is to be run. Move-only. The application's folder, PATH and variables are those of the call, also when it begins
/// later.
struct SubprocessOptions {
    /// A name that is looked for in the application's PATH (in absolute folders only), or a path, when it holds "/"; a relative
    /// one starts in the application's folder. No shell is asked: nothing is expanded.
    Required<std::string> program;
    std::vector<std::string> arguments = {}; // without the program's name
    SubprocessEnvironment environment = {};
    std::string folder = {}; // where it runs; empty: where the application is
    SubprocessInput input = {};
    SubprocessOutput output = {};
    SubprocessOutput errors = {};
    /// Seconds since its beginning after which it is ended as by `cancel`.
    std::optional<double> timeLimit = {};
    /// Seconds between SIGTERM and SIGKILL when it is ended; with 0 or less SIGKILL comes at once.
    double grace = 5;
    SubprocessLeftovers leftovers = SubprocessLeftovers::Kill;
    /// Where closures and completion run, one after the other whatever kind it is; null: on a queue of its own.
    dispatch_queue_t queue = {};
};

} // namespace Tessarin
