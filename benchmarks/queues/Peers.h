#pragma once
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#if __has_include(<boost/asio/thread_pool.hpp>)
#define TESSARIN_BENCHMARKS_ASIO 1
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>
#endif

namespace Tessarin::benchmarks {

/// What one writes by hand: a thread, a deque, a mutex and a condition variable.
class DequeWorker {
public:
    DequeWorker() : thread_([this] { run(); }) {}
    ~DequeWorker() {
        {
            std::lock_guard const hold(mutex_);
            ends_ = true;
        }
        changed_.notify_one();
        thread_.join();
    }

    void post(std::function<void()> work) {
        {
            std::lock_guard const hold(mutex_);
            queue_.push_back(std::move(work));
        }
        changed_.notify_one();
    }

private:
    void run() {
        std::unique_lock hold(mutex_);
        for (;;) {
            changed_.wait(hold, [this] { return ends_ || !queue_.empty(); });
            if (queue_.empty()) return;
            auto const work = std::move(queue_.front());
            queue_.pop_front();
            hold.unlock();
            work();
            hold.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> queue_;
    bool ends_ = false;
    std::thread thread_;
};

} // namespace Tessarin::benchmarks
