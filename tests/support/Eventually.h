#pragma once
#include <chrono>
#include <thread>

namespace Tessarin::tests {

/// Polls a state that nothing announces, for far longer than anything needs; whether it came.
template <class Condition> bool eventually(Condition&& condition) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace Tessarin::tests
