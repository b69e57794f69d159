#include "tests/notifications/NotifierFixture.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <latch>
#include <map>
#include <numeric>
#include <random>
#include <set>
#include <thread>

namespace Tessarin {
namespace {

/// When something began and ended, on a clock that all threads share. What never happened lies in the far future.
struct Span {
    static constexpr int never = 1 << 30;
    int begin = never, end = never;
};

/// One channel under threads that post, register, tie, destroy and clean, while a single thread removes: removal is by
/// position, so it takes only from the watchers that were there first, before any that may be cleaned up, one at a time.
class NotifierSchedule : public tests::NotifierTest {
protected:
    static constexpr int steady = 8, removable = 40, rounds = 150, posters = 3, registrars = 2;

    struct Watched {
        Span registered, ended; // ended: removed, or its object destroyed
        int registrar;
    };
    struct Post {
        Span span;
        std::vector<int> heardBy; // written by the delivering thread only
    };

    template <class Work> Span timed(Work const& work) {
        Span span;
        span.begin = clock++;
        work();
        span.end = clock++;
        return span;
    }
    /// Room for a watcher or a post; what is there already stays where it is.
    template <class T> std::pair<int, T*> add(std::deque<T>& all) {
        std::lock_guard const hold(mutex);
        all.emplace_back();
        return {static_cast<int>(all.size()) - 1, &all.back()};
    }
    Post& postOf(NSNotification const& notification) {
        std::lock_guard const hold(mutex);
        return posts[static_cast<std::size_t>(notification.userInfo().integer())];
    }
    auto hearing(int id) {
        return [this, id](Ref<NSNotification> const& notification) { postOf(*notification).heardBy.push_back(id); };
    }
    /// The target of a message, which hears like a block.
    class Target : public NSObject {
    public:
        void heard(Ref<NSNotification> notification) { block(notification); }
        static SelectorTable selectors() { return {{"heard:"_sel, &Target::heard}}; }
        std::function<void(Ref<NSNotification> const&)> block;
    };

    void registerAndDestroy(int registrar);
    void removeOneAfterTheOther();
    void judge(Post const& post, bool complete);

    Ref<Notifier> const channel = make<Notifier>("schedule");
    std::mutex mutex;
    std::deque<Watched> watched; // guarded by mutex, as is the next
    std::deque<Post> posts;
    std::atomic<int> clock{0};
    std::map<int, Ref<NSObject>> tokens;
    std::vector<Watched*> first; // those that were there before the threads began
    std::vector<int> onMain; // the posts in the order in which the main thread delivered them
};

void NotifierSchedule::registerAndDestroy(int registrar) {
    std::mt19937 random(static_cast<unsigned>(registrar));
    std::vector<std::pair<Watched*, Ref<Target>>> alive;
    for (int round = 0; round < rounds; ++round) {
        auto const [id, entry] = add(watched);
        auto object = make<Target>();
        object->block = hearing(id);
        entry->registrar = registrar;
        entry->registered = timed([&, id = id] {
            switch (random() % 3) {
            case 0: channel->watch({.target = object, .message = "heard:"_sel}); break;
            case 1: channel->watch({.count = 1, .tiedTo = object, .block = hearing(id)}); break;
            default:
                channel->watch({.block = [hear = hearing(id), weak = WeakRef<Target>(object)](auto const& notification) {
                    if (weak.lock()) hear(notification);
                }});
            }
        });
        alive.emplace_back(entry, std::move(object));
        if (random() % 2) {
            std::swap(alive[random() % alive.size()], alive.back());
            alive.back().first->ended = timed([&] {
                WeakRef<Target> const weak = std::exchange(alive.back().second, nullptr);
                while (!weak.expired()) std::this_thread::yield(); // a delivery may hold it a little longer
            });
            alive.pop_back();
        }
        if (random() % 8 == 0) channel->clean(true);
    }
    std::lock_guard const hold(mutex);
    for (auto& [entry, object] : alive) tokens.emplace(-clock++, object); // kept to the end
}

void NotifierSchedule::removeOneAfterTheOther() {
    std::mt19937 random(99);
    std::vector<int> order(removable);
    std::iota(order.begin(), order.end(), steady);
    std::ranges::shuffle(order, random);
    order.resize(removable - 5);
    for (int const id : order) {
        first[static_cast<std::size_t>(id)]->ended = timed([&] { channel->unwatch(std::exchange(tokens[id], nullptr)); });
        settled(channel);
    }
}

void NotifierSchedule::judge(Post const& post, bool complete) {
    std::map<int, int> times, lastOf; // each registrar's watchers in the order of their registration
    for (int const id : post.heardBy) {
        ++times[id];
        auto& last = lastOf.emplace(watched[static_cast<std::size_t>(id)].registrar, -1).first->second;
        EXPECT_LT(std::exchange(last, id), id) << "out of order, or twice";
    }
    for (int id = 0; id < static_cast<int>(watched.size()); ++id) {
        auto const& [registered, ended, registrar] = watched[static_cast<std::size_t>(id)];
        // What is posted to the main thread is delivered some time after `notify` has returned.
        bool const must =
            registered.end < post.span.begin && (complete ? post.span.end < ended.begin : ended.begin == Span::never);
        bool const mustNot = ended.end < post.span.begin || (complete && post.span.end < registered.begin);
        EXPECT_TRUE(!must || times[id] == 1) << "lost: " << id;
        EXPECT_TRUE(!mustNot || times[id] == 0) << "after its end: " << id;
    }
}

TEST_F(NotifierSchedule, NeitherLosesNorDoublesAndKeepsTheOrder) {
    for (int id = 0; id < steady + removable; ++id) {
        auto* const entry = first.emplace_back(add(watched).second);
        entry->registrar = -1;
        entry->registered = timed([&] { tokens[id] = channel->watch({.block = hearing(id)}); });
    }
    auto const mainOrder = channel->watch({.block = [this](auto const& notification) {
        if (Dispatcher::inMainQueue()) onMain.push_back(static_cast<int>(notification->userInfo().integer()));
    }});
    std::atomic<int> changers{registrars + 1};
    std::latch start(posters + registrars + 1);
    std::vector<std::thread> threads;
    auto const run = [&](auto const& work) {
        threads.emplace_back([&, work] {
            start.arrive_and_wait();
            work();
        });
    };
    for (int i = 0; i < registrars; ++i) run([&, i] { registerAndDestroy(i), --changers; });
    run([&] { removeOneAfterTheOther(), --changers; });
    for (int i = 0; i < posters; ++i)
        run([&, i] {
            for (int round = 0; changers > 0 && round < 1000; ++round) {
                auto const [id, entry] = add(posts);
                bool const here = i > 0 || round % 4 > 0;
                entry->span = timed([&, id = id] { channel->notify({.info = Value(id), .forceCurrentThread = here}); });
            }
        });
    for (auto& thread : threads) thread.join();
    Dispatcher::main()->sync([] {});

    std::set<int> const main(onMain.begin(), onMain.end());
    EXPECT_EQ(main.size(), onMain.size());
    EXPECT_TRUE(std::ranges::is_sorted(onMain)) << "a thread's posts reach the main thread in its order";
    for (int id = 0; id < static_cast<int>(posts.size()); ++id) judge(posts[static_cast<std::size_t>(id)], !main.contains(id));

    // What is left is what nobody removed and nobody destroyed, in the order of registration; the rest has been forgotten.
    channel->clean();
    auto const left = settled(channel);
    auto const ended = std::ranges::count_if(watched, [](auto const& entry) { return entry.ended.end != Span::never; });
    EXPECT_GE(left, watched.size() + 1 - static_cast<std::size_t>(ended));
    EXPECT_TRUE(std::ranges::none_of(channel->watchers(), [](auto const& watcher) { return watcher->isObsolete(); }));
    auto kept = channel->watchers();
    kept.resize(steady + 5);
    std::erase_if(tokens, [](auto const& token) { return token.first < 0 || !token.second; });
    EXPECT_TRUE(std::ranges::equal(kept, tokens, {}, {}, [](auto const& token) { return token.second; }))
        << "those that were not removed, in order";
    channel->setWatchers({});
}

TEST_F(NotifierSchedule, ConcurrentRemovalsTakeWhatStandsAtTheirPositionsAndNeverDeliverAgain) {
    // Two threads remove from the two ends at once. However their operations interleave, each takes one watcher from the list,
    // though perhaps another one than meant; the notification centre always forgets the right one.
    constexpr std::size_t each = 10;
    for (int round = 0; round < 20; ++round) {
        auto const crowd = make<Notifier>("crowd");
        std::vector<Ref<NSObject>> kept;
        std::vector<std::atomic<int>> heard(4 * each);
        for (auto& count : heard) kept.push_back(crowd->watch({.block = [&](auto const&) { ++count; }}));
        std::latch start(2);
        std::thread other([&] {
            start.arrive_and_wait();
            for (std::size_t i = 0; i < each; ++i) crowd->unwatch(kept[i]);
        });
        start.arrive_and_wait();
        for (std::size_t i = 3 * each; i > 2 * each; --i) crowd->unwatch(kept[i - 1]);
        other.join();
        // A watcher that was taken for another is not found when its own turn comes: then nothing is removed.
        auto const left = settled(crowd);
        EXPECT_TRUE(2 * each <= left && left < 4 * each) << left;
        post(crowd);
        for (std::size_t i = 0; i < 4 * each; ++i) EXPECT_EQ(heard[i], i / each % 2 == 0 ? 0 : 1) << i;
        crowd->setWatchers({});
    }
}

TEST_F(NotifierSchedule, ATargetMayDieWhileItsMessageIsOnTheWay) {
    struct Fragile : NSObject {
        ~Fragile() override { alive = false; }
        void heard(Ref<NSNotification>) {
            if (!alive) std::abort();
        }
        static SelectorTable selectors() { return {{"heard:"_sel, &Fragile::heard}}; }
        bool alive = true;
    };
    std::atomic<bool> done{false};
    std::atomic<int> delivered{0};
    std::thread poster([&] {
        for (; !done; ++delivered) post(channel);
    });
    std::weak_ptr<Fragile> last;
    for (int i = 0; i < 500; ++i) {
        auto target = make<Fragile>();
        last = target;
        channel->watch({.target = target, .message = "heard:"_sel});
        channel->watch({.tiedTo = target, .block = [raw = target.get()](auto const&) { raw->heard(nullptr); }});
        for (int const before = delivered; delivered == before;) std::this_thread::yield();
        target.reset(); // in the middle of another post, as like as not
    }
    done = true;
    poster.join();
    EXPECT_TRUE(last.expired());
    channel->clean();
    EXPECT_EQ(settled(channel), 0u);
}

} // namespace
} // namespace Tessarin
