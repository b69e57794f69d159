#pragma once
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace Tessarin::benchmarks {

/// What one writes by hand: threads, a deque, a mutex and a condition variable.
class DequeWorkers {
public:
    explicit DequeWorkers(int threads = 1) {
        for (int i = 0; i < threads; ++i) threads_.emplace_back([this] { run(); });
    }
    ~DequeWorkers() {
        {
            std::lock_guard const hold(mutex_);
            ends_ = true;
        }
        changed_.notify_all();
        for (auto& thread : threads_) thread.join();
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
    std::vector<std::thread> threads_;
};

} // namespace Tessarin::benchmarks
