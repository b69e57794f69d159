#include "benchmarks/queues/Groups.h"

#include "Tessarin/platform/queues/Dispatch.h"
#include "benchmarks/queues/Peers.h"
#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <semaphore>
#include <thread>
#include <vector>

namespace Tessarin::benchmarks {
namespace {

/// Microseconds from a submission until the submitting thread goes on after its work has run.
template <class Trip> double microseconds(std::chrono::microseconds pause, Trip const& trip) {
    int const count = pause.count() > 0 ? 1'000 : 20'000;
    double inside = 0;
    for (int i = 0; i < count; ++i) {
        if (pause.count() > 0) std::this_thread::sleep_for(pause);
        inside += secondsOf(trip);
    }
    return inside / count * 1e6;
}

void roundTrip(Report& report, char const* row, std::chrono::microseconds pause, Row const& goal) {
    if (!report.wants("hops", row)) return;
    auto const queue = dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL);
    auto const done = dispatch_semaphore_create(0);
    auto const ours = [&] {
        return microseconds(pause, [&] {
            dispatch_async(queue, [&] { dispatch_semaphore_signal(done); });
            dispatch_semaphore_wait(done, DISPATCH_TIME_FOREVER);
        });
    };
    compare(report, {.group = "hops", .row = row, .unit = "us", .target = goal.target, .bound = goal.bound}, ours, &Peer::serial,
            [&](QueueMaker make) {
                auto const theirs = make();
                return microseconds(pause, [&] { finish(*theirs); });
            });
}

class PingPong {
public:
    PingPong(FunctionRef<void(bool, PingPong&)> post, int hops) : post_(post), left_(hops), hops_(hops) {}

    void hop() {
        if (--left_ == 0) return done_.release();
        first_ = !first_;
        post_(first_, *this);
    }
    double rate() {
        return hops_ / 1e6 / secondsOf([&] {
                   hop();
                   done_.acquire();
               });
    }

private:
    FunctionRef<void(bool, PingPong&)> post_;
    int left_;
    int hops_;
    bool first_ = false;
    std::binary_semaphore done_{0};
};

void pingPong(Report& report) {
    char const* const row = "ping-pong between two serial queues";
    if (!report.wants("hops", row)) return;
    constexpr int hops = 100'000;
    dispatch_queue_t const queues[] = {dispatch_queue_create("ping", DISPATCH_QUEUE_SERIAL),
                                       dispatch_queue_create("pong", DISPATCH_QUEUE_SERIAL)};
    auto const submit = [&](bool first, PingPong& game) { dispatch_async(queues[first ? 0 : 1], [&game] { game.hop(); }); };
    compare(
        report, {.group = "hops", .row = row, .unit = "M/s", .target = 25, .better = Better::Larger}, // 4.7 M/s of 0.19
        [&] { return PingPong(submit, hops).rate(); }, &Peer::serial,
        [&](QueueMaker make) {
            std::unique_ptr<PeerQueue> const theirs[] = {make(), make()};
            auto const post = [&](bool first, PingPong& game) {
                theirs[first ? 0 : 1]->post([](void* argument) { static_cast<PingPong*>(argument)->hop(); }, &game);
            };
            double const rate = PingPong(post, hops).rate();
            for (auto const& queue : theirs) finish(*queue);
            return rate;
        });
}

double oursToMain(int count) {
    double seconds = 0;
    std::thread thread([&] {
        seconds = secondsOf([&] {
            for (int i = 0; i < count; ++i) dispatch_sync(dispatch_get_main_queue(), [] {});
        });
        stopMainLoop();
    });
    runMainLoop();
    thread.join();
    return seconds;
}

void syncToMain(Report& report) {
    if (!report.wants("hops", "sync to the main queue")) return;
    constexpr int count = 10'000;
    auto const microseconds = [](auto const& measure) { return median(runs, [&] { return measure(count) / count * 1e6; }); };
    Row row{.group = "hops", .row = "sync to the main queue", .unit = "us", .ours = microseconds(oursToMain), .target = 20};
    for (auto const& peer : otherPeers())
        row.others.push_back(peer.syncToMain ? std::optional(microseconds(peer.syncToMain)) : std::nullopt);
    report.add(std::move(row));
}

/// A worker and the main loop answer each other's items.
void answersFromMain(Report& report) {
    char const* const row = "the main queue and a worker in turn";
    if (!report.wants("hops", row)) return;
    constexpr int count = 10'000;
    auto const worker = dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL);
    struct Game {
        dispatch_queue_t const& worker;
        int left = count;
        void hop() {
            if (left-- == 0) return stopMainLoop();
            dispatch_async(worker, [this] { dispatch_async(dispatch_get_main_queue(), [this] { hop(); }); });
        }
    };
    double const ours = median(runs, [&] {
        Game game{worker};
        return secondsOf([&] {
                   dispatch_async(dispatch_get_main_queue(), [&game] { game.hop(); });
                   runMainLoop();
               }) /
               count * 1e6;
    });
    report.add({.group = "hops", .row = row, .unit = "us", .ours = ours, .target = 20});
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

/// Messages between serial queues, one for each: every hop leads to any of them.
class Mesh {
public:
    Mesh(int queues, int quality, int hops) : messages_(static_cast<std::size_t>(queues)), hops_(hops) {
        auto const target = dispatch_get_global_queue(quality, 0);
        for (auto& message : messages_) {
            queues_.push_back(dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL));
            dispatch_set_target_queue(queues_.back(), target);
            message = {queues_.size(), hops / queues};
        }
    }
    double nanosecondsAHop() {
        travelling_ = static_cast<int>(messages_.size());
        return 1e9 / hops_ * secondsOf([&] {
                   for (auto& message : messages_) hop(message);
                   done_.acquire();
               });
    }

private:
    struct Message {
        std::uint64_t state;
        int left;
    };
    void hop(Message& message) {
        if (message.left-- == 0) {
            if (--travelling_ == 0) done_.release();
            return;
        }
        message.state = message.state * 6364136223846793005U + 1442695040888963407U;
        dispatch_async(queues_[(message.state >> 33) % queues_.size()], [this, &message] { hop(message); });
    }

    std::vector<Message> messages_;
    std::vector<dispatch_queue_t> queues_;
    int hops_;
    std::atomic<int> travelling_ = 0;
    std::binary_semaphore done_{0};
};

void allToAll(Report& report, int queues, int quality, char const* row, double target) {
    if (!report.wants("hops", row)) return;
    std::mutex mutex;
    long value = 0;
    constexpr int pairs = 3'000'000;
    auto const result = medians(
        runs, [&] { return Mesh(queues, quality, 1'000'000).nanosecondsAHop(); },
        [&] {
            return secondsOf([&] {
                       for (int at = 0; at < pairs; ++at) {
                           std::lock_guard const hold(mutex);
                           touch(value);
                       }
                   }) /
                   pairs * 1e9;
        });
    report.add({.group = "hops",
                .row = row,
                .unit = "ns",
                .ours = result.ours,
                .peer = "std::mutex",
                .theirs = result.theirs,
                .target = target});
}

} // namespace

void benchHops(Report& report) {
    roundTrip(report, "async and wait, warm", std::chrono::microseconds{0}, {.target = 0.5}); // spinning beats a sleep
    // Both processors sleep by then, and what it takes to wake them is the machine's: no more than by hand.
    roundTrip(report, "async and wait, after a pause", std::chrono::microseconds{200}, {.target = 1.1});
    pingPong(report);
    answersFromMain(report);
    allToAll(report, 30, QOS_CLASS_DEFAULT, "all to all of 30 serial queues", 7.0);
    allToAll(report, 30, QOS_CLASS_UTILITY, "the same, utility", 4.7);
    allToAll(report, 1'000, QOS_CLASS_DEFAULT, "all to all of 1,000 serial queues", 6.1);
    allToAll(report, 1'000, QOS_CLASS_UTILITY, "the same of 1,000, utility", 7.0);
    syncToMain(report);
    oneMoreWorker(report, "one more worker, engine's waits", true);
    oneMoreWorker(report, "one more worker, other waits", false);
}

} // namespace Tessarin::benchmarks
