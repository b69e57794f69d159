#include "tests/notifications/NotifierFixture.h"
#include "tests/support/MainThread.h"

#include <algorithm>
#include <ctime>
#include <limits>
#include <thread>

namespace Tessarin {
namespace {

using tests::Listener;

class NotifierTests : public tests::NotifierTest {
protected:
    ~NotifierTests() override { channel->setWatchers({}); }

    Ref<Notifier> const channel = make<Notifier>("channel");
    int heard = 0;
    Ref<NSObject> watch(std::optional<std::int64_t> count = {}, Ref<NSObject> object = nullptr) {
        return channel->watch({.object = std::move(object), .count = count, .block = [this](auto const&) { ++heard; }});
    }
};

TEST_F(NotifierTests, NamesEndWithTheApplicationsIdentifier) {
    EXPECT_EQ(channel->name(), "channel.org.example.tests");
    EXPECT_EQ(make<Notifier>("")->name(), ".org.example.tests");
    EXPECT_EQ(channel->serializer()->maxConcurrentOperationCount(), 1);
    EXPECT_NE(channel->serializer(), make<Notifier>("channel")->serializer());
}

TEST_F(NotifierTests, CoalescingIsAcceptedAndIgnored) {
    using Coalescent = Notifier::Coalescent;
    watch();
    for (auto const& [raw, coalescent] :
         {std::pair(0, Coalescent::Idle), std::pair(1, Coalescent::ASAP), std::pair(2, Coalescent::Now)}) {
        EXPECT_EQ(Coalescent::fromRawValue(raw), coalescent);
        EXPECT_EQ(std::hash<Coalescent>{}(coalescent), static_cast<std::size_t>(raw));
        for (int i = 0; i < 2; ++i) channel->notify({.forceCurrentThread = true, .coalescent = coalescent});
    }
    EXPECT_EQ(heard, 6);
    EXPECT_FALSE(Coalescent::fromRawValue(-1) || Coalescent::fromRawValue(3));
}

TEST_F(NotifierTests, ACountEndsWithTheDeliveryThatFindsLessThanTwo) {
    struct Row {
        std::optional<std::int64_t> count;
        int deliveries;
        std::optional<std::int64_t> left;
    };
    for (auto const& [count, deliveries, left] :
         std::vector<Row>{{1, 1, 0}, {0, 1, -1}, {-3, 1, -4}, {2, 2, 0}, {7, 5, 2}, {{}, 5, {}}}) {
        heard = 0;
        auto const watcher = std::static_pointer_cast<Notifier::Watcher>(watch(count));
        for (int i = 0; i < 5; ++i) NSNotificationCenter::defaultCenter()->postNotificationName(channel->name());
        EXPECT_EQ(heard, deliveries) << count.value_or(99);
        EXPECT_EQ(watcher->count(), left);
        EXPECT_EQ(settled(channel), deliveries < 5 ? 0u : 1u);
        channel->unwatch(watcher);
        EXPECT_EQ(settled(channel), 0u);
    }
    watch(std::numeric_limits<std::int64_t>::min());
    EXPECT_DEATH(post(channel), "^Notifier.Watcher.fired: the count cannot go below the smallest integer\n$");
}

TEST_F(NotifierTests, ATiedWatcherIgnoresItsCountUntilItsObjectDies) {
    Ref<NSObject> object = make<NSObject>();
    auto thing = std::make_shared<int>(0); // any shared thing will do
    channel->watch({.count = 1, .tiedTo = object, .block = [this](auto const&) { ++heard; }});
    channel->watch({.tiedTo = thing, .block = [this](auto const&) { heard += 100; }});
    for (int i = 0; i < 3; ++i) post(channel);
    EXPECT_EQ(heard, 303);
    EXPECT_EQ(channel->watchers()[0]->count(), 1);
    EXPECT_EQ(channel->watchers()[0]->target(), object);
    for (auto const& watcher : channel->watchers()) watcher->fired(nullptr);
    EXPECT_EQ(heard, 303) << "without a notification a tied watcher delivers nothing";
    thing.reset();
    post(channel);
    EXPECT_EQ(heard, 304);
    EXPECT_EQ(settled(channel), 1u) << "the post has found it dead and had it cleaned up";
    object.reset();
    EXPECT_TRUE(channel->watchers()[0]->isObsolete());
    post(channel);
    EXPECT_EQ(heard, 304);
    EXPECT_EQ(settled(channel), 0u);
}

TEST_F(NotifierTests, ADeadTargetGoesAtTheNextRegistrationOrUnwatchButNotAtAPost) {
    auto const other = make<Listener>();
    for (int way = 0; way < 2; ++way) {
        auto target = make<Listener>();
        channel->watch({.target = target, .message = "heard:"_sel, .count = 2});
        auto const watcher = channel->watchers().back();
        target.reset();
        post(channel);
        EXPECT_EQ(settled(channel), 1u);
        EXPECT_EQ(watcher->count(), 1) << "it is counted down though there was nobody to deliver to";
        EXPECT_TRUE(watcher->isObsolete());
        if (way == 0)
            watch();
        else
            channel->unwatch({.target = other});
        EXPECT_EQ(settled(channel), 1u - static_cast<std::size_t>(way));
        channel->setWatchers({});
    }
}

TEST_F(NotifierTests, FiltersSendersByIdentityAndPassesWhatWasPosted) {
    auto const target = make<Listener>(), sender = make<Listener>(), twin = make<Listener>();
    sender->mark = twin->mark = 1;
    channel->watch({.target = target, .message = "heard:"_sel});
    watch({}, sender);
    post(channel, sender);
    EXPECT_EQ(target->last->name().view(), channel->name());
    EXPECT_EQ(target->last->object(), sender);
    post(channel, twin); // equal, but another object
    post(channel);
    EXPECT_EQ(heard, 1);
    EXPECT_EQ(target->deliveries, 3);
    channel->notify({.info = Value(Dictionary{{"pages", 3}}), .forceCurrentThread = true});
    EXPECT_EQ(target->last->userInfo(), Value(Dictionary{{"pages", 3}}));
    channel->watchers()[0]->performSelector("fired:"_sel); // made up
    EXPECT_EQ(target->last->name().view(), channel->name());
    EXPECT_TRUE(target->last->userInfo().isAbsent());
    std::static_pointer_cast<Notifier::Watcher>(watch({}, sender))->fired(nullptr);
    EXPECT_EQ(heard, 2);
}

TEST_F(NotifierTests, UnwatchRemovesOnlyTheFirstMatch) {
    auto const target = make<Listener>(), twin = make<Listener>(), sender = make<Listener>();
    target->mark = twin->mark = 1;
    auto const left = [&](UnwatchTarget const& options) {
        channel->unwatch(options);
        return settled(channel);
    };
    for (int i = 0; i < 2; ++i) channel->watch({.target = target, .message = "heard:"_sel});
    channel->watch({.target = target, .message = "poked"_sel, .object = sender});
    channel->watch({.tiedTo = sender, .block = [](auto const&) {}});
    auto const thing = std::make_shared<int>(0), another = std::make_shared<int>(0);
    channel->watch({.tiedTo = thing, .block = [](auto const&) {}});
    EXPECT_EQ(left({.target = twin}), 4u) << "equality of objects";
    post(channel, sender);
    EXPECT_EQ(target->deliveries, 2);
    EXPECT_EQ(left({.target = target}), 3u);
    EXPECT_EQ(left({.target = target}), 3u) << "one with a filter does not match without it";
    EXPECT_EQ(left({.target = target, .object = target}), 3u);
    EXPECT_EQ(left({.target = target, .object = sender}), 2u);
    EXPECT_EQ(left({.target = sender}), 1u);
    EXPECT_EQ(left({.target = another}), 1u);
    EXPECT_EQ(left({.target = thing}), 0u);
    post(channel, sender);
    EXPECT_EQ(target->deliveries, 2);
}

TEST_F(NotifierTests, ATokenEndsItsOwnWatcherAndAnythingElseIsIgnored) {
    watch();
    auto const token = watch();
    watch();
    channel->unwatch(make<NSObject>());
    channel->unwatch(nullptr);
    EXPECT_EQ(settled(channel), 3u);
    for (int i = 0; i < 2; ++i) {
        make<Notifier>("another")->unwatch(token); // the token knows its own
        post(channel);
        EXPECT_EQ(settled(channel), 2u);
    }
    EXPECT_EQ(heard, 4);
}

TEST_F(NotifierTests, NotifyRunsHereOrLaterOnTheMainThreadInOrder) {
    std::vector<int> order;
    std::thread::id thread;
    channel->watch({.block = [&](auto const& notification) {
        order.push_back(static_cast<int>(notification->userInfo().integer()));
        thread = std::this_thread::get_id();
    }});
    auto const postNumber = [&](int number, bool here) { channel->notify({.info = Value(number), .forceCurrentThread = here}); };
    postNumber(1, true);
    EXPECT_EQ(order, std::vector{1});
    EXPECT_EQ(thread, std::this_thread::get_id());
    std::thread::id main;
    tests::onMainThread([&] {
        main = std::this_thread::get_id();
        for (int number : {2, 3}) postNumber(number, false);
        EXPECT_EQ(order, std::vector{1});
        postNumber(4, true);
        channel->notify();
    });
    Dispatcher::main()->sync([] {});
    EXPECT_EQ(order, (std::vector{1, 4, 2, 3, 0}));
    EXPECT_EQ(thread, main);
}

TEST_F(NotifierTests, RemovalIsByThePositionFoundAtCallTime) {
    auto const a = watch(), b = watch(), c = watch();
    auto const release = hold(channel);
    channel->unregister(static_cast<Notifier::Watcher&>(*a));
    channel->unregister(static_cast<Notifier::Watcher&>(*b)); // second now, but c is when its turn comes
    release();
    EXPECT_EQ(settled(channel), 1u);
    EXPECT_EQ(channel->watchers()[0], b);
    channel->unregister(static_cast<Notifier::Watcher&>(*c)); // not there: nothing
    EXPECT_EQ(settled(channel), 1u);
    EXPECT_DEATH(
        {
            auto const atLast = hold(channel);
            for (int i = 0; i < 2; ++i) channel->unregister(static_cast<Notifier::Watcher&>(*b));
            atLast();
            settled(channel);
        },
        "^Notifier.unregister: there is no watcher at position 0 any more\n$");
}

TEST_F(NotifierTests, AConnectionLeavesExactlyItsOwnRegistrationWhateverElseLeaves) {
    auto const connect = [this](int amount, std::optional<std::int64_t> count = {}) {
        return channel->connect({.count = count, .block = [this, amount](auto const&) { heard += amount; }});
    };
    auto const token = watch();
    auto first = connect(10), second = connect(100), third = connect(1000);
    auto const release = hold(channel);
    first.disconnect();
    channel->unwatch(token);
    second = std::move(third); // ends what it was
    EXPECT_TRUE(second.isConnected() && !first.isConnected() && !third.isConnected());
    post(channel);
    EXPECT_EQ(heard, 1000) << "at once, though the serializer is busy";
    release();
    EXPECT_EQ(settled(channel), 0u);
    {
        auto const once = connect(1, 1), twice = connect(1, 1);
        for (int i = 0; i < 2; ++i) post(channel);
        EXPECT_FALSE(once.isConnected() || twice.isConnected());
        settled(channel);
    }
    auto const target = make<Listener>();
    {
        auto const scoped = channel->connect({.target = target, .message = "heard:"_sel});
        post(channel);
    }
    post(channel);
    EXPECT_EQ(heard, 5002);
    EXPECT_EQ(target->deliveries, 1);
}

TEST_F(NotifierTests, WatchersMayEndThemselvesAndRegisterOthersWhileTheyRun) {
    Ref<NSObject> self;
    WeakRef<NSObject> gone;
    auto const captured = std::make_shared<int>(0);
    self = channel->watch({.block = [&, captured](auto const&) {
        ++heard;
        channel->unwatch(self);
        gone = std::exchange(self, nullptr);
        settled(channel); // now nobody keeps it any more
        EXPECT_TRUE(gone.expired());
        EXPECT_EQ(captured.use_count(), 2);
        watch();
        post(channel);
    }});
    post(channel);
    EXPECT_EQ(heard, 2) << "itself, and the one that it registered at the inner post";
    EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(NotifierTests, AChannelWithWatchersStaysAliveAndGoesWithTheLast) {
    auto channel = make<Notifier>("cycle");
    WeakRef<Notifier> const weak = channel;
    auto token = channel->watch({.block = [](auto const&) {}});
    channel.reset();
    ASSERT_FALSE(weak.expired());
    weak.lock()->unwatch(std::exchange(token, nullptr));
    while (!weak.expired()) std::this_thread::yield();
}

TEST_F(NotifierTests, OverriddenGettersAndSettersAreHeard) {
    class Hearing : public Notifier {
    public:
        void setWatchers(std::vector<Ref<Watcher>> watchers) override {
            sizes += std::to_string(watchers.size());
            watchers.push_back(nullptr); // left out
            Notifier::setWatchers(std::move(watchers));
        }
        std::string sizes;
    };
    class Endless : public Notifier::Watcher {
        std::optional<std::int64_t> count() const override { return 9; }
        void setCount(std::optional<std::int64_t> count) override { left = *count; }

    public:
        std::int64_t left = 0;
    };
    auto const hearing = make<Hearing>("hearing");
    auto const token = hearing->watch({.block = [](auto const&) {}});
    hearing->watch({.tiedTo = make<NSObject>(), .block = [](auto const&) {}}); // which is cleaned up at once
    hearing->unwatch(token);
    EXPECT_EQ(settled(hearing), 0u);
    EXPECT_EQ(hearing->sizes, "1210");
    auto const endless = make<Endless>(channel, nullptr, NotificationBlock([](auto const&) {}), std::nullopt);
    post(channel);
    EXPECT_EQ(endless->left, 8);
}

TEST_F(NotifierTests, ARegistrationDoesNotAskAllThatAreTiedToObjects) {
    std::vector<Ref<NSObject>> objects(6000);
    for (auto& object : objects) object = make<NSObject>();
    auto const now = [] { // of this thread alone, where all of it runs, however busy the machine is
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    };
    auto const time = [&](std::size_t count) {
        auto const own = make<Notifier>("tied");
        auto const start = now();
        for (std::size_t i = 0; i < count; ++i) own->watch({.tiedTo = objects[i], .block = [](auto const&) {}});
        auto const seconds = now() - start;
        objects[count / 2] = make<NSObject>();
        own->clean();
        EXPECT_EQ(own->watchers().size(), count - 1) << "but forgets what has ended";
        own->setWatchers({});
        return seconds;
    };
    auto const few = std::min({time(1500), time(1500), time(1500)});
    EXPECT_LT(std::min({time(6000), time(6000), time(6000)}), 9 * few);
}

TEST_F(NotifierTests, MisuseIsFatalAndSaysWhatWasMissing) {
    EXPECT_DEATH(make<Notifier>(), "^\"init\\(\\)\" not implemented on \"Tessarin.Notifier\"\n$");
    EXPECT_DEATH(make<Notifier::Watcher>(), "^\"init\\(\\)\" not implemented on \"Tessarin.Watcher\"\n$");
    using Linked = Notifier::WatcherWithLinkedObject;
    EXPECT_DEATH(
        make<Linked>(channel, nullptr, make<NSObject>(), "a"_sel, std::optional<std::int64_t>{}),
        "^\"init\\(notifier:object:target:action:count:\\)\" not implemented on \"Tessarin.WatcherWithLinkedObject\"\n$");
    EXPECT_DEATH(make<Linked>(channel, nullptr, NotificationBlock{}, std::optional<std::int64_t>{}),
                 "^\"init\\(notifier:object:block:count:\\)\" not implemented on \"Tessarin.WatcherWithLinkedObject\"\n$");
    auto const deaf = make<NSObject>();
    channel->watch({.target = deaf, .message = "heard:"_sel});
    EXPECT_DEATH(post(channel), "^Tessarin.NSObject does not answer heard:\n$");
    NSBundle::mainBundle()->setBundleIdentifier({});
    EXPECT_DEATH(make<Notifier>("a"), "^Notifier.init: the main bundle has no identifier\n$");
}

} // namespace
} // namespace Tessarin
