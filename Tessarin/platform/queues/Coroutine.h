#pragma once
#include "Tessarin/platform/queues/Queue.h"
#include "Tessarin/platform/runtime/SpinLock.h"
#include <atomic>
#include <coroutine>
#include <cstddef>
#include <cstdint>

namespace Tessarin {

/// Something that a coroutine waits for, as whoever cancels the coroutine sees it. The last reference destroys it.
class TESSARIN_API Awaited {
public:
    Awaited(Awaited const&) = delete;
    Awaited& operator=(Awaited const&) = delete;

    /// The one who waits wants to end: what resumes it may come sooner now. Any thread, also twice, and when it is over.
    virtual void cancel() noexcept = 0;

    void retain() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) destroy();
    }

protected:
    Awaited() = default;
    virtual ~Awaited() = default;
    virtual void destroy() noexcept { delete this; }

private:
    std::atomic<std::uint32_t> references_ = 1;
};
inline void retainObject(Awaited& awaited) noexcept { awaited.retain(); }
inline void releaseObject(Awaited& awaited) noexcept { awaited.release(); }

/// What is common to all coroutines of `Task` (Tessarin/dispatch/Task.h): it stands in front of the coroutine's frame in one
/// piece of memory and outlives it. It is resumed by items of queues only, so that no number of awaits in a row grows the stack, and is
/// ended, if it shall, by such an item too: then its frame is destroyed where it waits.
///
/// One reference is each owner's, one its own while it runs. What is said to be its own business may be called by the
/// coroutine's awaits alone; a coroutine that waits belongs to what it waits for, which resumes it once.
class TESSARIN_API Coroutine final : public Awaited {
public:
    /// Memory for a frame; `freeFrame` by its end.
    static void* makeFrame(std::size_t size);
    static void freeFrame(void* frame) noexcept;
    template <class Promise> static Coroutine& of(std::coroutine_handle<Promise> handle) noexcept {
        return *(reinterpret_cast<Coroutine*>(handle.address()) - 1);
    }
    std::coroutine_handle<> frame() noexcept { return std::coroutine_handle<>::from_address(this + 1); }

    /// Once it stands at its beginning: the first reference is the caller's.
    void isMade() noexcept { isMade_ = true; }
    /// Runs it here up to its first wait. Nothing when it has begun; one thread at a time.
    void begin() noexcept;
    bool hasBegun() const noexcept { return hasBegun_; }
    /// Has it end at its next await, with its locals destroyed. Nothing once it is done.
    void cancel() noexcept override;
    /// Whether `cancel` was called.
    bool isCancelled() const noexcept { return isCancelled_.load(std::memory_order_acquire); }
    /// Whether it has ended, in whatever way.
    bool isDone() const noexcept { return waiter_.load(std::memory_order_acquire) == done; }
    /// Of one that is done: whether it was ended before its end. It has no frame any more.
    bool wasEnded() const noexcept { return hasNoFrame_; }

    // Its own business, while it is suspended. After these calls it may run already, or be gone.

    /// Goes on, on that queue.
    void goOnOn(dispatch_queue_t const& queue);
    /// Waits on the queue it is on, the default global one where there is none, until `goOn`. False: it is cancelled, and nothing
    /// was noted; then call `goOn`. `awaited` may be null.
    bool wait(Retained<Awaited> awaited);
    /// Has one that waits go on, or end when it is cancelled. Any thread; once for each wait.
    void goOn() noexcept;
    /// The same from an item of the queue on which it waits.
    void goOnHere() noexcept;
    /// Waits for the end of another one. False: that has ended already. `endsToo`: where the other was ended, this one is, too.
    enum class OfEnded : std::uint8_t { TellsResult, EndsToo };
    bool waitForEndOf(Coroutine& other, OfEnded ifEnded);
    /// Waits so many nanoseconds; negative ones are over at once.
    void waitFor(std::int64_t nanoseconds);
    /// Ends as one that is cancelled, by an item.
    void endSoon();
    /// It has come to its end.
    void finish() noexcept;
    /// Whether this thread is destroying the frame of one that is ended before its end.
    static bool isEndingOne() noexcept;

protected:
    void destroy() noexcept override;

private:
    static constexpr std::uintptr_t done = 1;

    Coroutine() = default;
    ~Coroutine() override = default;
    void forgetAwaited() noexcept;
    void end() noexcept;

    // Aligned as what follows it shall be.
    // The coroutine that waits for its end, or `done`.
    alignas(__STDCPP_DEFAULT_NEW_ALIGNMENT__) std::atomic<std::uintptr_t> waiter_ = 0;
    dispatch_queue_t queue_;                 // its own, while it runs; constant while it waits
    Coroutine* child_ = nullptr;             // likewise: what it waits for, when it ends too where that was ended
    Retained<Awaited> awaited_;              // guarded by lock_
    SpinLock lock_;
    std::atomic<bool> isCancelled_ = false; // changes under lock_
    bool hasAwaited_ = false;               // its own, like what follows
    bool mustEnd_ = false;
    bool isMade_ = false;
    bool hasBegun_ = false;
    bool hasNoFrame_ = false; // written before `waiter_` is `done`
};

} // namespace Tessarin
