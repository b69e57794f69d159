#include "benchmarks/queues/Groups.h"

#include "Tessarin/platform/queues/Dispatch.h"
#include "benchmarks/queues/Peers.h"
#include <chrono>
#include <future>

namespace Tessarin::benchmarks {
namespace {

void roundTrip(Report& report, char const* row, std::chrono::microseconds pause, double target) {
    if (!report.wants("hops", row)) return;
    auto const queue = dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL);
    auto const done = dispatch_semaphore_create(0);
    int const count = pause.count() > 0 ? 1'000 : 20'000;
    double const ours = median(runs, [&] {
        double inside = 0;
        for (int i = 0; i < count; ++i) {
            if (pause.count() > 0) std::this_thread::sleep_for(pause);
            inside += secondsOf([&] {
                dispatch_async(queue, [&] { dispatch_semaphore_signal(done); });
                dispatch_semaphore_wait(done, DISPATCH_TIME_FOREVER);
            });
        }
        return inside / count * 1e6;
    });
    report.add({.group = "hops", .row = row, .unit = "us", .ours = ours, .target = target});
}

template <class Post> struct PingPong {
    Post post; // (which of the two, work)
    int left;
    std::promise<void> done = {};

    PingPong(Post way, int hops) : post(std::move(way)), left(hops) {}
    void hop(bool first) {
        if (--left == 0) return done.set_value();
        post(first, [this, first] { hop(!first); });
    }
    double rate() {
        double const hops = left;
        return hops / 1e6 / secondsOf([&] {
                   hop(true);
                   done.get_future().wait();
               });
    }
};

void pingPong(Report& report) {
    if (!report.wants("hops", "ping-pong between two serial queues")) return;
    constexpr int hops = 500'000;
    dispatch_queue_t const queues[] = {dispatch_queue_create("ping", DISPATCH_QUEUE_SERIAL), dispatch_queue_create("pong", DISPATCH_QUEUE_SERIAL)};
    auto const ours = [&] {
        return PingPong([&](bool first, auto work) { dispatch_async(queues[first ? 0 : 1], std::move(work)); }, hops).rate();
    };
#ifdef TESSARIN_BENCHMARKS_ASIO
    auto const result = medians(runs, ours, [&] {
        boost::asio::thread_pool pool(2);
        boost::asio::strand<boost::asio::thread_pool::executor_type> strands[] = {boost::asio::make_strand(pool), boost::asio::make_strand(pool)};
        return PingPong([&](bool first, auto work) { boost::asio::post(strands[first ? 0 : 1], std::move(work)); }, hops).rate();
    });
    report.add({.group = "hops", .row = "ping-pong between two serial queues", .unit = "M/s", .ours = result.ours, .peer = "Asio strands", .theirs = result.theirs, .target = 1, .better = Better::Larger});
#else
    report.add({.group = "hops", .row = "ping-pong between two serial queues", .unit = "M/s", .ours = median(runs, ours), .target = 4.7, .better = Better::Larger});
#endif
}

void syncToMain(Report& report) {
    if (!report.wants("hops", "sync to the main queue")) return;
    constexpr int count = 10'000;
    double const ours = median(runs, [] {
        double seconds = 0;
        std::thread thread([&] {
            seconds = secondsOf([] {
                for (int i = 0; i < count; ++i) dispatch_sync(dispatch_get_main_queue(), [] {});
            });
            stopMainLoop();
        });
        runMainLoop();
        thread.join();
        return seconds / count * 1e6;
    });
    report.add({.group = "hops", .row = "sync to the main queue", .unit = "us", .ours = ours, .target = 20});
}

/// Every worker that may run blocks; how long until the next item starts?
void oneMoreWorker(Report& report, char const* row, bool announced) {
    if (!report.wants("hops", row)) return;
    auto const queue = dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0);
    double const ours = median(runs, [&] {
        auto const blocked = dispatch_semaphore_create(0);
        auto const gate = dispatch_semaphore_create(0);
        std::promise<void> open;
        auto const opened = open.get_future().share();
        auto const count = static_cast<int>(std::thread::hardware_concurrency());
        auto const group = dispatch_group_create();
        for (int i = 0; i < count; ++i)
            dispatch_group_async(group, queue, [&] {
                dispatch_semaphore_signal(blocked);
                announced ? static_cast<void>(dispatch_semaphore_wait(gate, DISPATCH_TIME_FOREVER)) : opened.wait();
            });
        for (int i = 0; i < count; ++i) dispatch_semaphore_wait(blocked, DISPATCH_TIME_FOREVER);
        double const seconds = secondsOf([&] {
            dispatch_async(queue, [&] { dispatch_semaphore_signal(blocked); });
            dispatch_semaphore_wait(blocked, DISPATCH_TIME_FOREVER);
        });
        open.set_value();
        for (int i = 0; i < count && announced; ++i) dispatch_semaphore_signal(gate);
        dispatch_group_wait(group, DISPATCH_TIME_FOREVER);
        return seconds * 1e3;
    });
    report.add({.group = "hops", .row = row, .unit = "ms", .ours = ours, .target = 50});
}

} // namespace

void benchHops(Report& report) {
    roundTrip(report, "async and wait, warm", std::chrono::microseconds{0}, 2);
    roundTrip(report, "async and wait, after a pause", std::chrono::microseconds{200}, 0);
    pingPong(report);
    syncToMain(report);
    oneMoreWorker(report, "one more worker, engine's waits", true);
    oneMoreWorker(report, "one more worker, other waits", false);
}

} // namespace Tessarin::benchmarks
