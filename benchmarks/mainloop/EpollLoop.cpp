#include "Tessarin/platform/queues/DispatchMain.h"
#include "benchmarks/mainloop/Loops.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <vector>

namespace Tessarin::benchmarks {
namespace {

/// What one writes without a library.
class HandWrittenQueue {
public:
    ~HandWrittenQueue() { close(descriptor_); }
    int descriptor() const { return descriptor_; }
    void post(std::function<void()> work) {
        std::unique_lock hold(mutex_);
        queued_.push_back(std::move(work));
        bool const wasEmpty = queued_.size() == 1;
        hold.unlock();
        std::uint64_t const one = 1;
        if (wasEmpty) static_cast<void>(!write(descriptor_, &one, sizeof one));
    }
    void drain() {
        std::uint64_t count = 0;
        static_cast<void>(!read(descriptor_, &count, sizeof count));
        {
            std::lock_guard const hold(mutex_);
            running_.swap(queued_);
        }
        for (auto const& work : running_) work();
        running_.clear();
    }

private:
    int const descriptor_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    std::mutex mutex_;
    std::vector<std::function<void()>> queued_; // guarded by mutex_
    std::vector<std::function<void()>> running_;
};

class EpollLoop : public Loop {
public:
    EpollLoop() {
        for (int const file : {mainQueueDescriptor(), own_.descriptor()}) {
            epoll_event event{.events = EPOLLIN, .data = {.fd = file}};
            epoll_ctl(epoll_, EPOLL_CTL_ADD, file, &event);
        }
    }
    ~EpollLoop() override { close(epoll_); }
    void run() override {
        for (runs_ = true; runs_;) {
            epoll_event events[2];
            int const count = epoll_wait(epoll_, events, 2, -1);
            for (int at = 0; at < count; ++at) events[at].data.fd == own_.descriptor() ? own_.drain() : drainMainQueue();
        }
    }
    void quit() override { runs_ = false; }
    void post(Call call, void* argument) override {
        own_.post([=] { call(argument); });
    }

private:
    int const epoll_ = epoll_create1(EPOLL_CLOEXEC);
    HandWrittenQueue own_;
    bool runs_ = false;
};

} // namespace
std::unique_ptr<Loop> makeEpollLoop() { return std::make_unique<EpollLoop>(); }
} // namespace Tessarin::benchmarks
