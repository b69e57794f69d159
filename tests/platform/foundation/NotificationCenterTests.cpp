#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationChannel.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationListener.h"
#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"

#include <algorithm>
#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <functional>
#include <thread>

namespace Tessarin {
namespace {

class Listener : public NSObject {
public:
    void heard(Ref<NSNotification> notification) { log_->push_back(mark_ + notification->name().string()); }
    void poked() { log_->push_back(mark_ + "poked"); }
    void direct(Ref<NSNotification> const& notification) { heard(notification); }
    static SelectorTable selectors() { return {{"heard:"_sel, &Listener::heard}, {"poked"_sel, &Listener::poked}}; }

    using NSObject::init;
    virtual void init(std::string mark, std::vector<std::string>& log) {
        mark_ = std::move(mark);
        log_ = &log;
    }

private:
    std::string mark_;
    std::vector<std::string>* log_ = nullptr;
};

class NotificationCenter : public testing::Test {
protected:
    NotificationCenter() { registerClass<Listener>(); }

    Ref<Listener> listener(std::string mark) { return make<Listener>(std::move(mark), log); }
    Ref<NSObject> observe(std::string mark, std::optional<std::string_view> name, Ref<NSObject> const& sender = nullptr) {
        return center->addObserverForName(name, sender, nullptr, [this, mark](auto const& notification) {
            log.push_back(mark + notification->name().string());
        });
    }
    std::vector<std::string> posted(std::string_view name, Ref<NSObject> sender = nullptr) {
        log.clear();
        center->postNotificationName(name, std::move(sender));
        return log;
    }

    using Log = std::vector<std::string>;
    Ref<NSNotificationCenter> center = make<NSNotificationCenter>();
    Log log;
};

TEST_F(NotificationCenter, ReachesMatchingObserversInOrderOfRegistration) {
    Ref<NSObject> const sender = make<NSObject>(), other = make<NSObject>();
    auto const selector = listener("1"), everything = listener("2"), direct = listener("5");
    center->addObserver(selector, "heard:"_sel, "A");
    center->addObserver(everything, "heard:"_sel);
    auto const third = observe("3", "A", sender);
    auto const fourth = observe("4", {}, sender);
    center->channelForName("A")->addObserver(direct, &Listener::direct);
    center->addObserver(selector, "poked"_sel, "A", other);

    EXPECT_EQ(posted("A"), (Log{"1A", "2A", "5A"}));
    EXPECT_EQ(posted("A", sender), (Log{"1A", "2A", "3A", "4A", "5A"}));
    EXPECT_EQ(posted("A", other), (Log{"1A", "2A", "5A", "1poked"}));
    EXPECT_EQ(posted("B", sender), (Log{"2B", "4B"}));
    EXPECT_EQ(posted("", sender), (Log{"2", "4"}));
    EXPECT_EQ(posted("B"), (Log{"2B"}));
}

TEST_F(NotificationCenter, RemovesByObserverNameAndSender) {
    Ref<NSObject> const sender = make<NSObject>();
    auto const a = listener("a");
    for (char const* name : {"A", "B", "C"}) center->addObserver(a, "heard:"_sel, name);
    center->addObserver(a, "heard:"_sel, "A", sender);
    auto const token = observe("t", "A");
    EXPECT_EQ(posted("A", sender), (Log{"aA", "aA", "tA"}));
    center->removeObserver(*a, "A", sender);
    EXPECT_EQ(posted("A", sender), (Log{"aA", "tA"}));
    center->removeObserver(*a, "A");
    EXPECT_EQ(posted("A", sender), (Log{"tA"}));
    EXPECT_EQ(posted("B"), (Log{"aB"}));
    center->removeObserver(*token, "B");
    make<NSNotificationCenter>()->removeObserver(*token);
    EXPECT_EQ(posted("A"), (Log{"tA"})) << "neither another name nor another centre removes it";
    center->removeObserver(*token);
    center->removeObserver(*token);
    center->removeObserver(*a);
    for (char const* name : {"A", "B", "C"}) EXPECT_EQ(posted(name), Log{});
}

TEST_F(NotificationCenter, HoldsObserversWeaklyAndForgetsDestroyedOnes) {
    auto const channel = center->channelForName("A");
    auto a = listener("a"), b = listener("b");
    Ref<NSObject> sender = make<NSObject>();
    center->addObserver(a, "heard:"_sel, "A");
    channel->addObserver(b, &Listener::direct);
    EXPECT_EQ(a.use_count(), 1);
    b.reset();
    EXPECT_EQ(posted("A"), Log{"aA"});
    a.reset();
    EXPECT_EQ(posted("A"), Log{});
    EXPECT_FALSE(channel->hasObservers()) << "a post has swept them";

}

std::atomic<int> storages{0};
/// Counts the storages that something still remembers, though it be weakly.
template <class T> struct Counting : std::allocator<T> {
    Counting() = default;
    template <class U> Counting(Counting<U> const&) noexcept {}
    template <class U> struct rebind {
        using other = Counting<U>;
    };
    T* allocate(std::size_t count) { return ++storages, std::allocator<T>::allocate(count); }
    void deallocate(T* at, std::size_t count) { --storages, std::allocator<T>::deallocate(at, count); }
};
class Counted : public NSObject {
public:
    template <class T> using ObjectAllocator = Counting<T>;
};

TEST_F(NotificationCenter, WhatIsDeadIsReleasedThoughNobodyPosts) {
    auto const kept = listener("k");
    for (bool const isNameNew : {false, true})
        for (bool const isSender : {false, true}) {
            for (int i = 0; i < 1000; ++i) {
                auto const name = isNameNew ? "A" + std::to_string(i + 1000 * isSender) : "A";
                auto const ended = make<Counted>();
                center->addObserver(isSender ? Ref<NSObject>(kept) : ended, "heard:"_sel, name, isSender ? ended : nullptr);
            }
            EXPECT_LT(storages, 300) << isNameNew << isSender;
        }
    EXPECT_EQ(posted("A"), Log{});
}

TEST_F(NotificationCenter, ChangesDuringAPostCountFromTheNextOneOnButRemovalAtOnce) {
    Ref<NSObject> second, later;
    auto const first = center->addObserverForName("A", nullptr, nullptr, [&](auto const&) {
        log.push_back("1");
        if (second) center->removeObserver(*second);
        if (!later) later = observe("3", "A");
    });
    second = observe("2", "A");
    EXPECT_EQ(posted("A"), Log{"1"});
    EXPECT_EQ(posted("A"), (Log{"1", "3A"}));
    center->removeObserver(*first);

}

TEST_F(NotificationCenter, AnObserverThatDoesNotAnswerOrIsMissingIsFatal) {
    EXPECT_DEATH(center->addObserver(nullptr, "heard:"_sel, "A"), "addObserver: there is no observer");
    EXPECT_DEATH(static_cast<void>(center->addObserverForName("A", nullptr, nullptr, nullptr)),
                 "addObserverForName: there is no block");
    EXPECT_DEATH(center->postNotification(nullptr), "postNotification: there is no notification");
    auto const a = listener("a");
    center->addObserver(a, "fly:"_sel, "A");
    EXPECT_DEATH(posted("A"), "Tessarin..anonymous namespace..Listener does not answer fly:");
}

TEST_F(NotificationCenter, APostWaitsForTheQueuesOfItsObservers) {
    for (bool const serial : {true, false}) {
        auto const queue = make<NSOperationQueue>(serial ? Serial::Yes : Serial::No);
        queue->setMaxConcurrentOperationCount(1);
        Ref<NSObject> nested;
        auto const first = observe("1", "A");
        auto const queued = center->addObserverForName("A", nullptr, queue, [&](auto const&) {
            log.push_back("queued");
            EXPECT_TRUE(queue->runsHere());
            if (!std::exchange(nested, observe("nested", "B")))
                center->postNotificationName("B"); // and "inside", without waiting
        });
        auto const inside = center->addObserverForName("B", nullptr, queue, [&](auto const&) { log.push_back("inside"); });
        auto const last = observe("2", "A");
        EXPECT_EQ(posted("A"), (Log{"1A", "queued", "inside", "nestedB", "2A"}));
        EXPECT_FALSE(queue->runsHere());
        for (auto const& token : {first, queued, inside, last, nested}) center->removeObserver(*token);
    }
}

TEST_F(NotificationCenter, AQueueCallsNobodyWhoWasRemovedMeanwhile) {
    auto const queue = make<NSOperationQueue>(Serial::Yes);
    std::promise<void> open, begun;
    queue->addOperationWithBlock([&] { open.get_future().wait(); });
    auto const first = center->addObserverForName("A", nullptr, nullptr, [&](auto const&) { begun.set_value(); });
    auto const removed = center->addObserverForName("A", nullptr, queue, [](auto const&) { FAIL(); });
    std::thread posting([&] { center->postNotificationName("A"); });
    begun.get_future().wait();
    center->removeObserver(*removed);
    open.set_value();
    posting.join();
    queue->waitUntilAllOperationsAreFinished(); // the first one uses `open`, and may not even have begun
}

TEST_F(NotificationCenter, ChannelsOutliveTheirCentreInSilence) {
    auto const channel = center->channelForName("A");
    auto const token = channel->addObserver(nullptr, [](auto const&) { FAIL(); });
    center.reset();
    channel->post(NSNotification::notificationWithName("A"));
    static_cast<void>(channel->addObserver(nullptr, [](auto const&) { FAIL(); }));
}

/// Counts its deliveries in a place that outlives it, and must not be touched after its end.
class Counter : public NSNotificationListener {
public:
    ~Counter() override { isWhole_ = false; }
    void fired(Ref<NSNotification> const&) override {
        if (!isWhole_) ++deliveredAfterTheEnd;
        ++*deliveries_;
        if (during) during();
    }
    NSObject const* sender() const override { return filter_.get(); }
    std::function<void()> during;
    static inline std::atomic<int> deliveredAfterTheEnd{0};

    using NSObject::init;
    virtual void init(Ref<NSNotificationChannel> channel, std::shared_ptr<std::atomic<int>> deliveries, Ref<NSObject> filter) {
        channel_ = std::move(channel);
        deliveries_ = std::move(deliveries);
        filter_ = std::move(filter);
        listenTo(*channel_);
    }

private:
    Ref<NSNotificationChannel> channel_;
    std::shared_ptr<std::atomic<int>> deliveries_;
    Ref<NSObject> filter_;
    bool isWhole_ = true;
};

TEST_F(NotificationCenter, AListenerHearsUntilItIsRemovedOrGone) {
    auto const count = std::make_shared<std::atomic<int>>(0);
    auto const heard = [&](Ref<NSObject> sender = nullptr) {
        *count = 0;
        center->postNotificationName("A", std::move(sender));
        return count->load();
    };
    auto const channel = center->channelForName("A");
    auto const sender = make<NSObject>();
    auto kept = make<Counter>(channel, count, nullptr), removed = make<Counter>(channel, count, nullptr),
         filtered = make<Counter>(channel, count, sender);
    EXPECT_EQ(heard(sender), 3);
    EXPECT_EQ(heard(make<NSObject>()), 2);
    center->removeObserver(*removed, "B");
    make<NSNotificationCenter>()->removeObserver(*removed);
    EXPECT_EQ(heard(), 2) << "neither another name nor another centre removes it";
    center->removeObserver(*removed, "A");
    center->removeObserver(*removed);
    EXPECT_EQ(heard(), 1);
    filtered.reset();
    EXPECT_EQ(heard(sender), 1);

    WeakRef<Counter> const gone = kept;
    kept->during = [&] { // its last reference goes while it runs
        kept.reset();
        EXPECT_TRUE(gone.expired());
        center->postNotificationName("A");
    };
    EXPECT_EQ(heard(), 1);
    EXPECT_FALSE(channel->hasObservers());
    EXPECT_EQ(count.use_count(), 2) << "all but the removed one, which is kept here, are destroyed";
    EXPECT_EQ(Counter::deliveredAfterTheEnd, 0);
    center.reset();
    removed = make<Counter>(channel, count, nullptr); // to a centre that is no more
}

} // namespace
} // namespace Tessarin
