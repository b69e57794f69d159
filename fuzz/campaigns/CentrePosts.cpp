// Threads register, remove, destroy and post at random, also from inside observers, and write down when each step began and
// ended. Afterwards every post is held against every observer: where the steps were in order there is one right number of
// deliveries, and where they overlapped a least and a most.
#include "fuzz/campaigns/Channels.h"

#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationChannel.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationListener.h"
#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <latch>
#include <map>
#include <mutex>
#include <random>
#include <thread>

namespace Tessarin::campaigns {
namespace {

using Time = std::uint64_t;
constexpr Time never = ~Time{0};
std::atomic<Time> lastTime{0};
Time now() { return ++lastTime; }

constexpr int names = 3, senders = 2, any = -1;
std::string nameOf(int name) { return std::string(1, static_cast<char>('A' + name)); }

struct Post : NSNotification {
    int number = 0, name = 0, sender = any;
    std::thread::id thread;
    Time begin = 0, end = 0;
};

enum class Kind { Selector, Member, Listener, Block, Queued };

/// What one observer was registered for, and what it heard; outlives it.
struct Witness : NSObject {
    struct Heard {
        int post;
        Time at;
        bool onItsThread;
    };
    Kind kind = Kind::Block;
    int name = any, sender = any;
    Closure<void()> during; // constant once the observer exists, as are those above
    Time addBegin = 0, addEnd = 0;
    std::atomic<Time> removeBegin{never}, removeEnd{never}; // several threads may end it: the first counts
    std::atomic<bool> isGone{false};
    std::mutex mutex;
    std::vector<Heard> heard; // guarded by mutex
    Ref<NSObject> observer; // likewise
    static inline std::atomic<int> heardByTheDead{0};

    void hear(Ref<NSNotification> const& notification) {
        auto const& post = static_cast<Post const&>(*notification);
        heardByTheDead += isGone;
        {
            std::lock_guard const hold(mutex);
            heard.push_back({post.number, now(), std::this_thread::get_id() == post.thread});
        }
        if (during) during();
        heardByTheDead += isGone;
    }
    Ref<NSObject> exchangeObserver(Ref<NSObject> other) {
        std::lock_guard const hold(mutex);
        return std::exchange(observer, std::move(other));
    }
    static void mark(std::atomic<Time>& time) {
        Time const to = now();
        for (auto old = time.load(); to < old && !time.compare_exchange_weak(old, to);) {}
    }
};

struct Observer : NSObject {
    ~Observer() override {
        witness->isGone = true;
        Witness::mark(witness->removeEnd); // until here a post may have kept it
    }
    void heard(Ref<NSNotification> notification) { witness->hear(notification); }
    void direct(Ref<NSNotification> const& notification) { witness->hear(notification); }
    static SelectorTable selectors() { return {{"heard:"_sel, &Observer::heard}}; }
    Ref<Witness> witness;
};

struct Listener : NSNotificationListener {
    ~Listener() override { witness->isGone = true; }
    void fired(Ref<NSNotification> const& notification) override { witness->hear(notification); }
    NSObject const* sender() const override { return filter.get(); }
    void listen(Ref<NSNotificationChannel> to) { channel = std::move(to), listenTo(*channel); }
    Ref<Witness> witness;
    Ref<NSObject> filter;
    Ref<NSNotificationChannel> channel;
};

struct World {
    Ref<NSNotificationCenter> center = make<NSNotificationCenter>();
    std::vector<Ref<NSObject>> objects{make<NSObject>(), make<NSObject>()};
    std::vector<Ref<NSOperationQueue>> queues{make<NSOperationQueue>(Serial::Yes), make<NSOperationQueue>(Serial::No)};
    std::atomic<int> postCount{0};
    Ref<NSObject> senderOf(int sender) const { return sender == any ? nullptr : objects[static_cast<std::size_t>(sender)]; }
};

/// One thread's part.
class Actor {
public:
    Actor(World& world, unsigned seed) : world_(world), center_(*world.center), random_(seed) {}
    std::vector<Ref<Witness>> witnesses;
    std::vector<Ref<Post>> posts;

    void act(int steps) {
        here_ = this;
        for (; steps > 0; --steps) {
            auto const choice = below(10);
            choice < 4 ? post() : choice < 7 ? add() : endOne();
        }
        while (!alive_.empty()) endOne();
    }

private:
    int below(int end) { return static_cast<int>(random_() % static_cast<unsigned>(end)); }
    int oneOrAny(int count) { return below(count + 1) - 1; }

    void post() {
        if (depth_ == 3) return;
        ++depth_;
        int const name = below(names), sender = oneOrAny(senders);
        auto const post = posts.emplace_back(make<Post>(nameOf(name), world_.senderOf(sender), Value{}));
        post->number = world_.postCount++, post->name = name, post->sender = sender, post->thread = std::this_thread::get_id();
        bool const byChannel = below(2);
        post->begin = now();
        byChannel ? center_.channelForName(nameOf(name))->post(post) : center_.postNotification(post);
        post->end = now();
        --depth_;
    }

    void add() {
        if (alive_.size() == 20) return;
        auto const witness = alive_.emplace_back(witnesses.emplace_back(make<Witness>()));
        witness->kind = static_cast<Kind>(below(5));
        bool const isChannels = witness->kind == Kind::Member || witness->kind == Kind::Listener;
        witness->name = isChannels ? below(names) : oneOrAny(names), witness->sender = oneOrAny(senders);
        if (witness->kind == Kind::Block) witness->during = reaction(*witness);
        witness->addBegin = now();
        auto observer = registered(witness);
        witness->addEnd = now();
        witness->exchangeObserver(std::move(observer));
    }
    Ref<NSObject> registered(Ref<Witness> const& witness) {
        auto const name = witness->name == any ? std::nullopt : std::optional(nameOf(witness->name));
        auto const sender = world_.senderOf(witness->sender);
        auto const queue = witness->kind == Kind::Queued ? world_.queues[random_() % 2] : nullptr;
        if (witness->kind >= Kind::Block)
            return center_.addObserverForName(name, sender, queue,
                                              [witness](auto const& notification) { witness->hear(notification); });
        if (witness->kind == Kind::Listener) {
            auto const listener = make<Listener>();
            listener->witness = witness, listener->filter = sender;
            listener->listen(center_.channelForName(*name));
            return listener;
        }
        auto const observer = make<Observer>();
        observer->witness = witness;
        if (witness->kind == Kind::Member)
            center_.channelForName(*name)->addObserver(observer, &Observer::direct, sender);
        else
            center_.addObserver(observer, "heard:"_sel, name, sender);
        return observer;
    }
    /// What some blocks do when they are called, each on the thread that posts.
    static Closure<void()> reaction(Witness& witness) {
        switch (here_->below(8)) {
        case 0: return [] { here_->post(); };
        case 1: return [] { here_->add(); };
        case 2:
            return [&witness] {
                if (auto const observer = witness.exchangeObserver(nullptr)) here_->remove(witness, *observer);
            };
        default: return {};
        }
    }

    void remove(Witness& witness, NSObject const& observer) {
        Witness::mark(witness.removeBegin);
        if (witness.name == any || below(2))
            center_.removeObserver(observer);
        else
            center_.removeObserver(observer, nameOf(witness.name), below(2) ? world_.senderOf(witness.sender) : nullptr);
        Witness::mark(witness.removeEnd);
    }
    void endOne() {
        if (alive_.empty()) return;
        std::swap(alive_[random_() % alive_.size()], alive_.back());
        auto const witness = std::move(alive_.back());
        alive_.pop_back();
        auto observer = witness->exchangeObserver(nullptr);
        if (!observer) return; // it has removed itself
        if (below(2) || witness->kind >= Kind::Block) return remove(*witness, *observer);
        Witness::mark(witness->removeBegin);
        observer.reset(); // the last reference, but for a post that calls it now
        if (witness->kind == Kind::Listener) Witness::mark(witness->removeEnd);
    }

    World& world_;
    NSNotificationCenter& center_;
    std::mt19937 random_;
    std::vector<Ref<Witness>> alive_;
    int depth_ = 0;
    static inline thread_local Actor* here_ = nullptr;
};

using Deliveries = std::map<Time, Witness const*>;

/// Whether the witness heard each post as often as it must and may, while it lasted and on its thread.
void judge(Witness const& witness, std::map<int, Ref<Post>> const& posts, std::map<int, Deliveries>& deliveries) {
    std::map<int, int> counts;
    for (auto const& [number, at, onItsThread] : witness.heard) {
        require(posts.at(number)->begin < at && at < posts.at(number)->end, "the post did not wait");
        require(onItsThread || witness.kind == Kind::Queued, "heard on another thread");
        ++counts[number];
        deliveries[number][at] = &witness;
    }
    for (auto const& [number, post] : posts) {
        bool const fits =
            (witness.name == any || witness.name == post->name) && (witness.sender == any || witness.sender == post->sender);
        int const least = fits && witness.addEnd < post->begin && post->end < witness.removeBegin;
        int const most = fits && witness.addBegin < post->end && post->begin < witness.removeEnd;
        require(least <= counts[number] && counts[number] <= most, "heard {} times, not {} to {}; kind {}", counts[number], least,
                most, static_cast<int>(witness.kind));
    }
}

} // namespace

void tryCentrePosts(Trial& trial, Tally& tally) {
    registerClass<Observer>();
    auto const seed = static_cast<unsigned>(trial.random(1U << 31));
    World world;
    std::deque<Actor> actors;
    std::vector<std::thread> threads;
    std::latch start(4);
    for (unsigned at = 0; at < 4; ++at)
        threads.emplace_back([&start, &actor = actors.emplace_back(world, seed + at)] {
            start.arrive_and_wait();
            actor.act(400);
        });
    for (auto& thread : threads) thread.join();

    std::map<int, Ref<Post>> posts;
    std::map<int, Deliveries> deliveries;
    for (auto const& actor : actors)
        for (auto const& post : actor.posts) posts[post->number] = post;
    for (auto const& actor : actors)
        for (auto const& witness : actor.witnesses) judge(*witness, posts, deliveries);
    for (auto const& [number, all] : deliveries) {
        Time latest = 0;
        for (auto const& [at, witness] : all) {
            require(latest < witness->addEnd, "one that was registered later was called before");
            latest = std::max(latest, witness->addBegin);
        }
    }
    require(Witness::heardByTheDead == 0, "the dead have heard something");
    for (int name = 0; name < names; ++name) {
        for (auto const& sender : world.objects) world.center->postNotificationName(nameOf(name), sender); // forgets the dead
        require(!world.center->channelForName(nameOf(name))->hasObservers(), "an observer is left");
    }
    tally.add("posts at the centre", posts.size());
}

} // namespace Tessarin::campaigns
