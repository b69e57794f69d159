#pragma once
// A toolkit's main loop as the tests see it. The toolkits' headers stay in the files that implement it, one per binary.
#include <functional>
#include <memory>

namespace Tessarin::tests {

class Loop {
public:
    virtual ~Loop() = default;
    /// Runs the loop, on the main thread, until `quit`, which ends the innermost one.
    virtual void run() = 0;
    virtual void quit() = 0;
    /// The toolkit's own timer, once.
    virtual void callAfter(int milliseconds, std::function<void()> work) = 0;
    /// The toolkit's own way to have something run when there is nothing more urgent, that is after painting.
    virtual void callWhenIdle(std::function<void()> work) = 0;
    /// How often the loop has gone to wait for events.
    virtual int waits() const = 0;
};

/// The loop with the main queue in it.
std::unique_ptr<Loop> makeLoop();

} // namespace Tessarin::tests
