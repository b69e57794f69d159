#include "Tessarin/platform/foundation/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/NSNotificationChannel.h"
#include "Tessarin/platform/foundation/NSNotificationListener.h"
#include "Tessarin/platform/foundation/NSOperationQueue.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <latch>
#include <map>
#include <mutex>
#include <random>
#include <thread>

// Threads register, remove, destroy and post at random, also from inside observers, and write down when each step began and ended.
// Afterwards every post is held against every observer: where the steps were in order there is one right number of deliveries,
// and where they overlapped a least and a most.
namespace Tessarin {
namespace {

using Time = std::uint64_t;
constexpr Time never = ~Time{0};
std::atomic<Time> lastTime{0};
Time now() { return ++lastTime; }

constexpr int names = 3, senders = 2, any = -1;
std::string nameOf(int name) { return std::string(1, static_cast<char>('A' + name)); }

/// One registration. Several threads may end it: what counts is the first begin and the first end of a removal.
struct Place {
    Place(int aName, int aSender) : name(aName), sender(aSender) {}
    int const name, sender;
    Time addBegin = 0, addEnd = 0;
    std::atomic<Time> removeBegin{never}, removeEnd{never};

    static void set(std::atomic<Time>& time) {
        Time const to = now();
        for (auto old = time.load(); to < old && !time.compare_exchange_weak(old, to);) {}
    }
    bool accepts(int aName, int aSender) const { return (name == any || name == aName) && (sender == any || sender == aSender); }
};

class Post : public NSNotification {
public:
    int number = 0, name = 0, sender = any;
    std::thread::id thread;
    Time begin = 0, end = 0;
};

enum class Kind { Selector, Member, Listener, Block, Queued };

/// What one observer was registered for, and what it heard; outlives it.
struct Witness {
    struct Heard {
        int post;
        Time at;
        bool onItsThread;
    };
    Kind kind = Kind::Block;
    std::vector<std::unique_ptr<Place>> places; // constant once the observer exists
    Closure<void()> during;                     // likewise
    std::mutex mutex;
    std::vector<Heard> heard; // guarded by mutex
    Ref<NSObject> observer;   // likewise
    std::atomic<bool> isGone{false};
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
    Ref<NSObject> takeObserver() {
        std::lock_guard const hold(mutex);
        return std::exchange(observer, nullptr);
    }
    void markRemoved(std::atomic<Time> Place::*side) {
        for (auto const& place : places) Place::set(place.get()->*side);
    }
};

class Observer : public NSObject {
public:
    ~Observer() override {
        witness_->isGone = true;
        witness_->markRemoved(&Place::removeEnd); // until here a post may have kept it
    }
    void heard(Ref<NSNotification> notification) { witness_->hear(notification); }
    void direct(Ref<NSNotification> const& notification) { witness_->hear(notification); }
    static SelectorTable selectors() { return {{"heard:"_sel, &Observer::heard}}; }
    using NSObject::init;
    virtual void init(std::shared_ptr<Witness> witness) { witness_ = std::move(witness); }

private:
    std::shared_ptr<Witness> witness_;
};

class ListeningObserver : public NSNotificationListener {
public:
    ~ListeningObserver() override { witness_->isGone = true; }
    void fired(Ref<NSNotification> const& notification) override { witness_->hear(notification); }
    NSObject const* sender() const override { return sender_.get(); }
    using NSObject::init;
    virtual void init(std::shared_ptr<Witness> witness, Ref<NSNotificationChannel> channel, Ref<NSObject> sender) {
        witness_ = std::move(witness), channel_ = std::move(channel), sender_ = std::move(sender);
        listenTo(*channel_);
    }

private:
    std::shared_ptr<Witness> witness_;
    Ref<NSNotificationChannel> channel_;
    Ref<NSObject> sender_;
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
    Actor(World& world, unsigned seed) : world_(world), random_(seed) {}
    std::vector<std::shared_ptr<Witness>> witnesses;
    std::vector<Ref<Post>> posts;

    void act(int steps) {
        here_ = this;
        for (int step = 0; step < steps; ++step) {
            auto const choice = below(10);
            if (choice < 4)
                post();
            else if (choice < 7)
                add();
            else if (!alive_.empty())
                endOne();
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
        auto const post = make<Post>(nameOf(name), world_.senderOf(sender), Value{});
        post->number = world_.postCount++, post->name = name, post->sender = sender, post->thread = std::this_thread::get_id();
        posts.push_back(post);
        bool const byChannel = below(2);
        post->begin = now();
        if (byChannel)
            world_.center->channelForName(nameOf(name))->post(post);
        else
            world_.center->postNotification(post);
        post->end = now();
        --depth_;
    }

    void add() {
        if (alive_.size() == 20) return;
        auto const witness = std::make_shared<Witness>();
        witnesses.push_back(witness);
        alive_.push_back(witness);
        witness->kind = static_cast<Kind>(below(5));
        bool const isChannels = witness->kind == Kind::Member || witness->kind == Kind::Listener;
        for (int count = witness->kind == Kind::Selector ? 1 + below(3) : 1; count > 0; --count)
            witness->places.push_back(std::make_unique<Place>(isChannels ? below(names) : oneOrAny(names), oneOrAny(senders)));
        if (witness->kind == Kind::Block) witness->during = reaction(*witness);
        Ref<Observer> const object = witness->kind == Kind::Selector || witness->kind == Kind::Member ? make<Observer>(witness) : nullptr;
        Ref<NSObject> made = object;
        for (auto const& place : witness->places) {
            place->addBegin = now();
            if (auto token = registered(witness, *place, object)) made = std::move(token);
            place->addEnd = now();
        }
        std::lock_guard const hold(witness->mutex);
        witness->observer = std::move(made);
    }
    Ref<NSObject> registered(std::shared_ptr<Witness> const& witness, Place const& place, Ref<Observer> const& object) {
        auto const name = place.name == any ? std::nullopt : std::optional(nameOf(place.name));
        auto const sender = world_.senderOf(place.sender);
        auto const hear = [witness](Ref<NSNotification> const& notification) { witness->hear(notification); };
        switch (witness->kind) {
        case Kind::Selector: return world_.center->addObserver(object, "heard:"_sel, name, sender), nullptr;
        case Kind::Member: return world_.center->channelForName(*name)->addObserver(object, &Observer::direct, sender), nullptr;
        case Kind::Listener: return make<ListeningObserver>(witness, world_.center->channelForName(*name), sender);
        case Kind::Block: return world_.center->addObserverForName(name, sender, nullptr, hear);
        case Kind::Queued: return world_.center->addObserverForName(name, sender, world_.queues[random_() % 2], hear);
        }
        return nullptr;
    }
    /// What some blocks do when they are called, each on the thread that posts.
    Closure<void()> reaction(Witness& witness) {
        switch (below(8)) {
        case 0: return [] { here_->post(); };
        case 1: return [] { here_->add(); };
        case 2: return [&witness] {
            if (auto const observer = witness.takeObserver()) here_->removeWholly(witness, *observer);
        };
        default: return {};
        }
    }

    void removeWholly(Witness& witness, NSObject const& observer) {
        witness.markRemoved(&Place::removeBegin);
        world_.center->removeObserver(observer);
        witness.markRemoved(&Place::removeEnd);
    }
    void removeFirst(Witness& witness, NSObject const& observer) {
        auto const& first = *witness.places[0];
        auto const mark = [&](std::atomic<Time> Place::*side) {
            for (auto const& place : witness.places)
                if (place->name == first.name && (first.sender == any || place->sender == first.sender)) Place::set(place.get()->*side);
        };
        mark(&Place::removeBegin);
        world_.center->removeObserver(observer, nameOf(first.name), world_.senderOf(first.sender));
        mark(&Place::removeEnd);
    }
    void endOne() {
        std::swap(alive_[random_() % alive_.size()], alive_.back());
        auto const witness = std::move(alive_.back());
        alive_.pop_back();
        auto observer = witness->takeObserver();
        if (!observer) return; // it has removed itself
        if (below(2) && witness->places[0]->name != any) removeFirst(*witness, *observer);
        if (below(2) || witness->kind >= Kind::Block) return removeWholly(*witness, *observer);
        witness->markRemoved(&Place::removeBegin);
        observer.reset(); // the last reference, but for a post that calls it now
        if (witness->kind == Kind::Listener) witness->markRemoved(&Place::removeEnd);
    }

    World& world_;
    std::mt19937 random_;
    std::vector<std::shared_ptr<Witness>> alive_;
    int depth_ = 0;
    static inline thread_local Actor* here_ = nullptr;
};

/// Whether the witness heard the post as often as it must and may.
void judge(Witness const& witness, Post const& post, std::map<int, int> const& heard) {
    int least = 0, most = 0;
    for (auto const& place : witness.places) {
        if (!place->accepts(post.name, post.sender)) continue;
        least += place->addEnd < post.begin && post.end < place->removeBegin;
        most += place->addBegin < post.end && post.begin < place->removeEnd;
    }
    auto const found = heard.find(post.number);
    int const count = found == heard.end() ? 0 : found->second;
    EXPECT_TRUE(least <= count && count <= most)
        << "heard " << count << " times, not " << least << " to " << most << "; kind " << static_cast<int>(witness.kind);
}

struct Delivery {
    Time at;
    Place const* place;
};

void judge(std::vector<std::shared_ptr<Witness>> const& witnesses, std::map<int, Ref<Post>> const& posts) {
    std::map<int, std::vector<Delivery>> deliveries; // to those with one place
    for (auto const& witness : witnesses) {
        std::map<int, int> heard;
        for (auto const& [number, at, onItsThread] : witness->heard) {
            auto const& post = *posts.at(number);
            EXPECT_TRUE(post.begin < at && at < post.end) << "the post did not wait";
            EXPECT_TRUE(onItsThread || witness->kind == Kind::Queued);
            ++heard[number];
            if (witness->places.size() == 1) deliveries[number].push_back({at, witness->places[0].get()});
        }
        for (auto const& [number, post] : posts) judge(*witness, *post, heard);
    }
    for (auto& [number, all] : deliveries) {
        std::ranges::sort(all, {}, &Delivery::at);
        Time latest = 0;
        for (auto const& [at, place] : all) {
            EXPECT_LT(latest, place->addEnd) << "one that was registered later was called before";
            latest = std::max(latest, place->addBegin);
        }
    }
}

void round(unsigned seed) {
    World world;
    std::vector<Actor> actors;
    for (unsigned at = 0; at < 4; ++at) actors.emplace_back(world, seed + at);
    std::vector<std::thread> threads;
    std::latch start(4);
    for (auto& actor : actors)
        threads.emplace_back([&] {
            start.arrive_and_wait();
            actor.act(400);
        });
    for (auto& thread : threads) thread.join();

    std::vector<std::shared_ptr<Witness>> witnesses;
    std::map<int, Ref<Post>> posts;
    for (auto const& actor : actors) {
        witnesses.insert(witnesses.end(), actor.witnesses.begin(), actor.witnesses.end());
        for (auto const& post : actor.posts) posts[post->number] = post;
    }
    judge(witnesses, posts);
    EXPECT_EQ(Witness::heardByTheDead, 0);
    for (int name = 0; name < names; ++name) {
        for (auto const& sender : world.objects) world.center->postNotificationName(nameOf(name), sender); // forgets the dead
        EXPECT_FALSE(world.center->channelForName(nameOf(name))->hasObservers());
    }
}

TEST(NotificationStress, EveryPostReachesWhomItMustOnceInOrderAndNobodyElse) {
    registerClass<Observer>();
    unsigned const seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    for (unsigned number = 0; number < (std::getenv("TESSARIN_LONG") ? 200U : 3U) && !HasFailure(); ++number) round(seed + 4 * number);
}

} // namespace
} // namespace Tessarin
