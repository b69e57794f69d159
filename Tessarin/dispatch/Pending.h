#pragma once
#include "Tessarin/dispatch/StringLike.h"
#include "Tessarin/platform/queues/DispatchSemaphore.h"
#include "Tessarin/platform/queues/Queue.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/Ref.h"
#include <utility>

namespace Tessarin {

/// A value that is computed in the background from the moment it is made. The work ends also when nobody keeps the object.
///
///     auto const thumbnail = make<Pending<Image>>([=] { return scaled(image); });
///     showProgress();
///     show(*thumbnail->fulfill());
template <class T> class Pending : public StringLike, public std::enable_shared_from_this<Pending<T>> {
public:
    Pending(Pending const&) = delete;
    Pending& operator=(Pending const&) = delete;
    virtual ~Pending() = default;

    /// Starts the block on `dispatchQueue()` and returns.
    virtual void init(Closure<T()> block) {
        semaphore_ = dispatch_semaphore_create(0);
        auto const queue = dispatchQueue();
        if (!semaphore_ || !queue) fatal("Pending.init: there is no queue to work on");
        dispatch_async(queue, [self = this->shared_from_this(), block = std::move(block)] {
            self->setActual(block());
            dispatch_semaphore_signal(self->semaphore_);
        });
    }

    /// Signalled once, when the block has run.
    dispatch_semaphore_t const& semaphore() const { return semaphore_; }

    /// The value once it is there. Reading it before `fulfill` has returned is not synchronised with the work.
    virtual KeptValue<T> actual() const { return actual_; }
    virtual void setActual(std::optional<T> actual) { actual_ = std::move(actual); }
    virtual void modifyActual(FunctionRef<void(std::optional<T>&)> change) {
        auto changed = [this]() -> std::optional<T> {
            if constexpr (std::is_copy_constructible_v<T>)
                return actual();
            else
                return std::exchange(actual_, std::nullopt);
        }();
        change(changed);
        setActual(std::move(changed));
    }

    /// Where the block runs: the global background queue. Asked during creation, so that a subclass can choose another one.
    virtual dispatch_queue_t dispatchQueue() const { return dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_BACKGROUND, 0); }

    /// Waits until the block has run and gives its result. Once only: the end of the work is signalled once, and this takes
    /// the signal, so that a second call never returns, nor one from inside the block. Keep the result, or read `actual`.
    virtual KeptValue<T> fulfill() {
        dispatch_semaphore_wait(semaphore_, DISPATCH_TIME_FOREVER); // not given back, on purpose
        return actual();
    }

    /// Fulfils it; the value when it is a text, else "".
    std::string string() override { return textOrEmpty(fulfill()); }

protected:
    Pending() = default;

private:
    dispatch_semaphore_t semaphore_; // constant after init
    std::optional<T> actual_;        // written before the signal, read after the wait
};

} // namespace Tessarin
