#include "Tessarin/platform/queues/Coroutine.h"

#include "Tessarin/platform/queues/engine/DispatchQueue.h"
#include "Tessarin/platform/queues/engine/Required.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/Hold.h"
#include <new>
#include <utility>

// Who may touch what: a coroutine that runs is its thread's. From the moment at which it has told somebody that it waits, by a
// submitted item, a noted waiter or a timer, it is that somebody's: nothing after such a call may touch the frame, nor the
// awaiter in it. Only an item, the one that the end of the wait submits, resumes the frame or destroys it, so `cancel` never
// does: it asks what is waited for to hurry. The queue's item orders what was written before it for the thread that it runs on.
namespace Tessarin {

using namespace engine;

namespace {
constinit thread_local int ending = 0;
}

static_assert(sizeof(Coroutine) % __STDCPP_DEFAULT_NEW_ALIGNMENT__ == 0, "a frame follows it");

void* Coroutine::makeFrame(std::size_t size) { return ::new (::operator new(sizeof(Coroutine) + size)) Coroutine() + 1; }

/// A frame that goes later leaves the memory to the last reference.
void Coroutine::freeFrame(void* frame) noexcept {
    auto* const coroutine = static_cast<Coroutine*>(frame) - 1;
    if (!coroutine->isMade_) coroutine->destroy(); // there is no coroutine: an argument could not be copied
}

void Coroutine::destroy() noexcept {
    if (isMade_ && !hasNoFrame_) frame().destroy();
    this->~Coroutine();
    ::operator delete(this);
}

void Coroutine::begin() noexcept {
    if (std::exchange(hasBegun_, true)) return;
    retain();
    isCancelled() ? end() : frame().resume();
}

void Coroutine::cancel() noexcept {
    Retained<Awaited> awaited;
    {
        Hold const hold(lock_);
        isCancelled_.store(true, std::memory_order_release);
        awaited = awaited_;
    }
    if (awaited) awaited->cancel();
}

void Coroutine::goOnOn(dispatch_queue_t const& queue) {
    required(queue, "co_await").submit(newItemOf([this] { goOnHere(); }));
}

bool Coroutine::wait(Retained<Awaited> awaited) {
    auto* const current = currentQueue();
    auto& queue = current ? *current : defaultGlobalQueue();
    if (queue_.get() != &queue) queue_ = dispatch_queue_t{&queue};
    if (!awaited) return !isCancelled();
    Hold const hold(lock_);
    if (isCancelled()) return false;
    hasAwaited_ = true;
    awaited_ = std::move(awaited);
    return true;
}

void Coroutine::goOn() noexcept { queue_->submit(newItemOf([this] { goOnHere(); })); }

void Coroutine::goOnHere() noexcept {
    if (hasAwaited_) forgetAwaited();
    auto* const child = std::exchange(child_, nullptr);
    bool const isEnded = isCancelled() || mustEnd_ || (child && child->wasEnded());
    isEnded ? end() : frame().resume();
}

void Coroutine::forgetAwaited() noexcept {
    Retained<Awaited> over; // released after the lock
    Hold const hold(lock_);
    over = std::exchange(awaited_, nullptr);
    hasAwaited_ = false;
}

bool Coroutine::waitForEndOf(Coroutine& other, OfEnded ifEnded) {
    // A cancelled one does not begin what it would have to wait for; see CancelPoint in dispatch/Awaiting.h. When it is cancelled
    // just now it waits all the same: the other may use its locals.
    if (!wait(Retained<Awaited>{&other})) other.cancel();
    if (ifEnded == OfEnded::EndsToo) child_ = &other;
    std::uintptr_t before = 0;
    if (other.waiter_.compare_exchange_strong(before, reinterpret_cast<std::uintptr_t>(this), std::memory_order_acq_rel))
        return true;
    if (before != done) fatal("Task: somebody waits for its end already");
    if (hasAwaited_) forgetAwaited();
    if (!std::exchange(child_, nullptr) || !other.wasEnded()) return false;
    endSoon();
    return true;
}

void Coroutine::endSoon() {
    mustEnd_ = true;
    wait(nullptr);
    goOn();
}

void Coroutine::finish() noexcept {
    auto const waiter = waiter_.exchange(done, std::memory_order_acq_rel);
    if (waiter != 0) reinterpret_cast<Coroutine*>(waiter)->goOn();
    release();
}

bool Coroutine::isEndingOne() noexcept { return ending > 0; }

void Coroutine::end() noexcept {
    ++ending;
    frame().destroy();
    --ending;
    hasNoFrame_ = true;
    finish();
}

} // namespace Tessarin
