#pragma once
// Main loops with the main queue in them, each beside its own way to have the main thread run something. Toolkits' headers stay
// apart from ours.
#include <memory>

namespace Tessarin::benchmarks {

using Call = void (*)(void*);

class Loop {
public:
    virtual ~Loop() = default;
    /// Until `quit`, which the main thread calls.
    virtual void run() = 0;
    virtual void quit() = 0;
    /// The loop's own way, from any thread.
    virtual void post(Call call, void* argument) = 0;
};

/// An epoll loop, and a queue written by hand: a mutex, a vector, an eventfd.
std::unique_ptr<Loop> makeEpollLoop();
/// Null where the toolkit was not installed at build time.
std::unique_ptr<Loop> makeGLibLoop();
std::unique_ptr<Loop> makeQtLoop();

} // namespace Tessarin::benchmarks
