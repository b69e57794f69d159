#pragma once
#include <atomic>
#include <cstdint>

namespace Tessarin {

/// Lets calls pass until it is closed. Who closes it may wait for those that are inside, and then knows that there will be none
/// any more. Any thread.
///
///     if (!gate.enter()) return;      // the one thread                gate.close(CallGate::Wait::Yes); // the other
///     callback();                                                      // nothing calls back from here on
///     gate.leave();
class CallGate {
public:
    enum class Wait { No, Yes };

    /// False once it is closed. May be entered again from inside.
    bool enter() noexcept {
        auto state = state_.load(std::memory_order_relaxed);
        do
            if (state & closed) return false;
        while (!state_.compare_exchange_weak(state, state + inside, std::memory_order_seq_cst));
        return true;
    }
    void leave() noexcept {
        if (state_.fetch_sub(inside, std::memory_order_seq_cst) == (closed | inside)) state_.notify_all();
    }
    /// True for the first who closes it. Not to be waited for by somebody inside.
    bool close(Wait wait) noexcept {
        auto const before = state_.fetch_or(closed, std::memory_order_seq_cst);
        if (wait == Wait::Yes)
            for (auto state = before | closed; state != closed; state = state_.load(std::memory_order_seq_cst))
                state_.wait(state);
        return !(before & closed);
    }
    bool isOpen() const noexcept { return !(state_.load(std::memory_order_seq_cst) & closed); }

private:
    static constexpr std::uint32_t closed = 1, inside = 2;
    std::atomic<std::uint32_t> state_ = 0; // `inside` for each call that is
};

} // namespace Tessarin
