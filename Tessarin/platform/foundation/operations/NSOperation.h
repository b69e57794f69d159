#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <atomic>

namespace Tessarin {

/// Something that is run once, usually by an NSOperationQueue. Any thread.
class TESSARIN_API NSOperation : public NSObject {
public:
    /// What the operation does; a subclass that takes long looks at `isCancelled` now and then.
    virtual void main() {}

    /// Runs `main`, unless cancelled, then the completion block, here and now. Fatal when it was started before.
    void start();
    /// A cancelled operation that has not begun counts as finished when its turn comes.
    void cancel() noexcept { isCancelled_ = true; }
    /// Returns when the operation has finished; never, for one that nobody starts.
    void waitUntilFinished() const;

    bool isCancelled() const noexcept { return isCancelled_; }
    bool isExecuting() const noexcept { return state_ == State::Executing; }
    bool isFinished() const noexcept { return state_ == State::Finished; }

    /// Called on the operation's thread when it has finished. To be set before the operation is started.
    void setCompletionBlock(Closure<void()> block) { completion_ = std::move(block); }

protected:
    NSOperation() = default;

private:
    enum class State : int { Ready, Executing, Finished };

    std::atomic<State> state_{State::Ready};
    std::atomic<bool> isCancelled_{false};
    Closure<void()> completion_;
};

/// An operation that calls a closure.
class TESSARIN_API NSBlockOperation : public NSOperation {
public:
    static Ref<NSBlockOperation> blockOperationWithBlock(Closure<void()> block);
    void main() override;

    using NSObject::init;
    virtual void init(Closure<void()> block);

protected:
    NSBlockOperation() = default;

private:
    Closure<void()> block_;
};

} // namespace Tessarin
