#pragma once
#include <pthread.h>

namespace Tessarin {

/// A lock that may be held for long: waiting threads sleep. It is std::mutex without <mutex>.
class Mutex {
public:
    Mutex() = default;
    Mutex(Mutex const&) = delete;
    Mutex& operator=(Mutex const&) = delete;

    void lock() noexcept { pthread_mutex_lock(&mutex_); }
    void unlock() noexcept { pthread_mutex_unlock(&mutex_); }

private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

} // namespace Tessarin
