#pragma once
#include "Tessarin/platform/foundation/processes/SubprocessResult.h"
#include "Tessarin/platform/queues/Queue.h"
#include <string>
#include <vector>

namespace Tessarin::processes {

class ProcessLoop;

/// What is to run, and how.
struct ProcessRequest {
    std::string program;                  // a name to be found in PATH, or a path
    std::vector<std::string> arguments;   // without the program's name
    std::vector<std::string> environment; // "NAME=value", all of it
    std::string folder;                   // empty: the application's
    /// The application's folder and its PATH when it was asked for: both may be others when it begins.
    std::string here, searchPath;
    SubprocessInput input;
    SubprocessOutput output, errors;
    std::optional<double> timeLimit; // seconds since it began
    double grace = 0;                // seconds between SIGTERM and SIGKILL
    bool endsGroup = true;           // what it leaves behind in its process group is killed
    /// A serial one, where the closures run; null when there are none.
    dispatch_queue_t queue;
    /// The starter's own, who waits; null: the one of all.
    ProcessLoop* loop = nullptr;
    /// Once, after all other closures, on the queue; without one on the loop's thread, which must not wait.
    Closure<void(SubprocessResult&&)> completion;
};

} // namespace Tessarin::processes
