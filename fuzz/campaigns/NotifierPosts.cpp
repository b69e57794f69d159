// One channel under threads that post, register, tie, destroy and clean, while a single thread removes.
#include "fuzz/campaigns/Channels.h"

#include "Tessarin/notifications/Notifier.h"
#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <functional>
#include <latch>
#include <map>
#include <mutex>
#include <numeric>
#include <random>
#include <set>
#include <thread>

namespace Tessarin::campaigns {
namespace {

/// When something began and ended, on a clock that all threads share. What never happened lies in the far future.
struct Span {
    static constexpr int never = 1 << 30;
    int begin = never, end = never;
};

/// How many watchers there are when the serializer has done what was asked of it.
std::size_t settled(Ref<Notifier> const& notifier) {
    for (int i = 0; i < 2; ++i)
        notifier->serializer()->waitUntilAllOperationsAreFinished(); // `unwatch` finds a watcher in one and removes it in another
    return notifier->watchers().size();
}

/// Removal is by position, so it takes only from the watchers that were there first, before any that may be cleaned up, one at a
/// time.
class NotifierSchedule {
public:
    explicit NotifierSchedule(unsigned seed) : seed_(seed) {}
    void run(Tally& tally);

private:
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
    void judge(Post const& post);

    Ref<Notifier> const channel = make<Notifier>("schedule");
    std::mutex mutex;
    std::deque<Watched> watched; // guarded by mutex, as is the next
    std::deque<Post> posts;
    std::atomic<int> clock{0};
    std::map<int, Ref<NSObject>> tokens;
    std::vector<Watched*> first; // those that were there before the threads began
    unsigned const seed_;
};

void NotifierSchedule::registerAndDestroy(int registrar) {
    std::mt19937 random(seed_ + static_cast<unsigned>(registrar));
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
    std::mt19937 random(seed_ + 99);
    std::vector<int> order(removable);
    std::iota(order.begin(), order.end(), steady);
    std::ranges::shuffle(order, random);
    order.resize(removable - 5);
    for (int const id : order) {
        first[static_cast<std::size_t>(id)]->ended = timed([&] { channel->unwatch(std::exchange(tokens[id], nullptr)); });
        settled(channel);
    }
}

void NotifierSchedule::judge(Post const& post) {
    std::map<int, int> times, lastOf; // each registrar's watchers in the order of their registration
    for (int const id : post.heardBy) {
        ++times[id];
        auto& last = lastOf.emplace(watched[static_cast<std::size_t>(id)].registrar, -1).first->second;
        require(std::exchange(last, id) < id, "out of order, or twice");
    }
    for (int id = 0; id < static_cast<int>(watched.size()); ++id) {
        auto const& [registered, ended, registrar] = watched[static_cast<std::size_t>(id)];
        bool const must = registered.end < post.span.begin && post.span.end < ended.begin;
        bool const mustNot = ended.end < post.span.begin || post.span.end < registered.begin;
        require(!must || times[id] == 1, "lost: {}", id);
        require(!mustNot || times[id] == 0, "after its end: {}", id);
    }
}

void NotifierSchedule::run(Tally& tally) {
    for (int id = 0; id < steady + removable; ++id) {
        auto* const entry = first.emplace_back(add(watched).second);
        entry->registrar = -1;
        entry->registered = timed([&] { tokens[id] = channel->watch({.block = hearing(id)}); });
    }
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
        run([&] {
            for (int round = 0; changers > 0 && round < 1000; ++round) {
                auto const [id, entry] = add(posts);
                entry->span = timed([&, id = id] { channel->notify({.info = Value(id), .forceCurrentThread = true}); });
            }
        });
    for (auto& thread : threads) thread.join();
    for (auto const& post : posts) judge(post);
    tally.add("posts to watchers", posts.size());

    // What is left is what nobody removed and nobody destroyed, in the order of registration; the rest has been forgotten.
    channel->clean();
    auto const left = settled(channel);
    auto const ended = std::ranges::count_if(watched, [](auto const& entry) { return entry.ended.end != Span::never; });
    require(left >= watched.size() - static_cast<std::size_t>(ended), "{} watchers are left", left);
    auto kept = channel->watchers();
    kept.resize(steady + 5);
    std::erase_if(tokens, [](auto const& token) { return token.first < 0 || !token.second; });
    bool const areInOrder = std::ranges::equal(kept, tokens, {}, {}, [](auto const& token) { return token.second; });
    require(areInOrder, "those that were not removed are not there, or out of order");
    channel->setWatchers({});
}

} // namespace

void tryNotifierPosts(Trial& trial, Tally& tally) {
    NSBundle::mainBundle()->setBundleIdentifier("org.example.campaigns"); // channels can be made
    NotifierSchedule(static_cast<unsigned>(trial.random(1U << 31))).run(tally);
}

void tryChannels(Trial& trial, Tally& tally) {
    trial.number() % 2 == 0 ? tryCentrePosts(trial, tally) : tryNotifierPosts(trial, tally);
}

} // namespace Tessarin::campaigns
