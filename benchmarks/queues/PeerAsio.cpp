#include "benchmarks/queues/Peers.h"

#if __has_include(<boost/asio/thread_pool.hpp>)
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>
#include <chrono>
#include <deque>
#include <thread>

namespace Tessarin::benchmarks {
namespace {

namespace asio = boost::asio;
using Clock = std::chrono::steady_clock;

asio::thread_pool& pool() {
    static asio::thread_pool pool(2);
    return pool;
}

template <class Executor> class Queue : public PeerQueue {
public:
    explicit Queue(Executor executor) : executor_(std::move(executor)) {}
    void post(void (*work)(void*), void* argument) override {
        asio::post(executor_, [=] { work(argument); });
    }

private:
    Executor executor_;
};
template <class Executor> std::unique_ptr<PeerQueue> queueOn(Executor executor) {
    return std::make_unique<Queue<Executor>>(std::move(executor));
}

double syncToMain(int count) {
    asio::io_context main;
    auto const busy = asio::make_work_guard(main);
    double seconds = 0;
    std::thread thread([&] {
        seconds = secondsOf([&] {
            for (int i = 0; i < count; ++i) {
                std::binary_semaphore done{0};
                asio::post(main, [&] { done.release(); });
                done.acquire();
            }
        });
        main.stop();
    });
    main.run();
    thread.join();
    return seconds;
}

std::array<double, 2> timers(int count) {
    auto const strand = asio::make_strand(pool());
    std::vector<double> late;
    late.reserve(static_cast<std::size_t>(count));
    std::deque<asio::steady_timer> all;
    std::binary_semaphore done{0};
    double const before = processorSeconds();
    for (int i = 0; i < count; ++i) {
        auto const when =
            Clock::now() + std::chrono::nanoseconds{100'000'000 + std::int64_t{i} * 7919 % count * (1'000'000'000 / count)};
        all.emplace_back(strand, when).async_wait([&late, when](auto const&) {
            late.push_back(std::chrono::duration<double, std::milli>(Clock::now() - when).count());
        });
    }
    asio::steady_timer last(strand, Clock::now() + std::chrono::milliseconds{1'200});
    last.async_wait([&](auto const&) { done.release(); });
    done.acquire();
    return {processorSeconds() - before, percentile99(late)};
}

std::array<double, 3> bytes(int count) {
    auto const each = [&](auto const& make) {
        auto const before = heapBytes();
        for (int i = 0; i < count; ++i) make();
        return (heapBytes() - before) / count;
    };
    using Strand = decltype(asio::make_strand(pool()));
    std::vector<Strand> strands;
    strands.reserve(static_cast<std::size_t>(count));
    double const strand = each([&] { strands.push_back(asio::make_strand(pool())); });
    std::deque<asio::steady_timer> all;
    double const timer = each([&] { all.emplace_back(pool(), std::chrono::hours{1}).async_wait([](auto const&) {}); });

    auto& queue = strands.front();
    std::binary_semaphore entered{0};
    std::binary_semaphore go{0};
    asio::post(queue, [&] { entered.release(), go.acquire(); });
    entered.acquire();
    double const item = each([&] { asio::post(queue, [] {}); });
    asio::post(queue, [&] { entered.release(); });
    go.release();
    entered.acquire();
    return {strand + sizeof(Strand), timer, item};
}

} // namespace

Peer asioPeer() {
    return {.serial = [] { return queueOn(asio::make_strand(pool())); },
            .pool = [] { return queueOn(pool().get_executor()); },
            .syncToMain = syncToMain,
            .timers = timers,
            .bytes = bytes};
}

} // namespace Tessarin::benchmarks
#else
Tessarin::benchmarks::Peer Tessarin::benchmarks::asioPeer() { return {}; }
#endif
