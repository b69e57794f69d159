#include "Tessarin/platform/foundation/values/Random.h"

#include "Tessarin/platform/runtime/Fatal.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <pthread.h>
#include <sys/random.h>

namespace Tessarin {
namespace {

// Counted up in the child of a fork, which must not hand out what its parent has buffered.
std::atomic<std::uint32_t> forks{0};

void fillFromSystem(std::span<std::byte> bytes) {
    while (!bytes.empty()) {
        auto const count = ::getrandom(bytes.data(), bytes.size(), 0);
        if (count < 0 && errno != EINTR) fatal("the system's random source failed");
        if (count > 0) bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
}

struct Buffer {
    std::array<std::byte, 512> bytes;
    std::size_t left = 0;
    std::uint32_t filledAfterForks = 0;

    Buffer() {
        static int const once = ::pthread_atfork(nullptr, nullptr, [] { forks.fetch_add(1, std::memory_order_relaxed); });
        static_cast<void>(once);
    }
    ~Buffer() { ::explicit_bzero(bytes.data(), bytes.size()); }

    void take(std::span<std::byte> wanted) {
        auto const now = forks.load(std::memory_order_relaxed);
        if (left < wanted.size() || filledAfterForks != now) {
            fillFromSystem(bytes);
            left = bytes.size();
            filledAfterForks = now;
        }
        auto* const from = bytes.data() + bytes.size() - left;
        std::memcpy(wanted.data(), from, wanted.size());
        ::explicit_bzero(from, wanted.size()); // what was handed out is known to the caller alone
        left -= wanted.size();
    }
};

} // namespace

void randomBytes(std::span<std::byte> bytes) {
    static thread_local Buffer buffer;
    if (bytes.size() > buffer.bytes.size() / 4)
        fillFromSystem(bytes);
    else if (!bytes.empty())
        buffer.take(bytes);
}

std::uint32_t randomBelow(std::uint32_t bound) {
    if (bound < 2) return 0;
    // The 2^32 mod bound lowest draws are thrown away, so that every remainder is left with equally many.
    auto const unfair = -bound % bound;
    for (;;) {
        std::uint32_t drawn = 0;
        randomBytes(std::as_writable_bytes(std::span{&drawn, 1}));
        if (drawn >= unfair) return drawn % bound;
    }
}

} // namespace Tessarin
