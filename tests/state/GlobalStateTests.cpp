#include "Tessarin/dates/DateMonth.h"
#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"
#include "Tessarin/platform/queues/DispatchSemaphore.h"
#include "Tessarin/state/GlobalState.h"

#include <atomic>
#include <gtest/gtest.h>
#include <functional>
#include <limits>
#include <map>
#include <thread>

namespace Tessarin {
namespace {

/// An application with an identifier, so that states can be made.
class Application : public testing::Test {
protected:
    Application() { NSBundle::mainBundle()->setBundleIdentifier("org.example.tests"); }
};

class States : public Application {
protected:
    ~States() override {
        state->setWatchers({});
        s_completeGlobalState().removeAll();
    }
    std::size_t settled() {
        for (int i = 0; i < 2; ++i) state->serializer()->waitUntilAllOperationsAreFinished();
        return state->watchers().size();
    }
    /// Holds the serializer until what it returns is signalled; then `work` runs there.
    dispatch_semaphore_t hold(std::function<void()> work = [] {}) {
        auto const release = dispatch_semaphore_create(0);
        state->serializer()->addOperationWithBlock([=] { dispatch_semaphore_wait(release, DISPATCH_TIME_FOREVER), work(); });
        return release;
    }
    void watch(TiedObject object = {}) {
        state->watchValue(object, [this](int value) { seen.push_back(value); });
    }

    Ref<GlobalState<int>> const state = make<GlobalState<int>>(3, "Mode");
    std::vector<int> seen;
};

class Observer : public NSObject {
public:
    void changed(Ref<ValueWatcher<int>> watcher) { values.push_back(watcher->parentState()->current()); }
    static SelectorTable selectors() { return {{"changed:"_sel, &Observer::changed}}; }
    std::vector<int> values;
};

TEST_F(States, TellsOfDifferencesOnlyAndLeavesPreviousAlone) {
    watch();
    state->setCurrent(3);
    state->modifyCurrent([](int& value) { value += 0; });
    settled();
    EXPECT_EQ(seen, std::vector<int>{});
    state->setCurrent(4);
    state->modifyCurrent([](int& value) { value *= 2, value += 1; });
    settled();
    EXPECT_EQ(seen.size(), 2u) << "one for each";
    EXPECT_EQ(seen.back(), 9);
    EXPECT_EQ(state->initial(), 3);
    EXPECT_EQ(state->previous(), 3);
    EXPECT_EQ(state->description(), "Mode: 9");
    EXPECT_EQ(state->name(), "Mode.org.example.tests");
}

TEST_F(States, DeliversWhatHoldsWhenItsTurnComesOnTheSerializer) {
    watch();
    auto const release = hold();
    for (int const value : {1, 2, 1}) state->setCurrent(value);
    state->notify(77, ForceCurrentThread::Yes); // neither here, nor that
    EXPECT_EQ(seen, std::vector<int>{});
    dispatch_semaphore_signal(release);
    settled();
    EXPECT_EQ(seen, (std::vector{1, 1, 1, 1}));
    state->notify({.forceCurrentThread = true}); // the channel's own post reaches value watchers, too
    EXPECT_EQ(seen.size(), 5u);
}

TEST_F(States, ARegistrationOnItsWayHearsOfAChangeBehindIt) {
    // No watcher yet, but the serializer is about to append one.
    auto const release = hold([this] {
        state->setWatchers({make<ValueWatcher<int>>(state, TiedObject{}, [this](int value) { seen.push_back(value); })});
    });
    state->setCurrent(5);
    dispatch_semaphore_signal(release);
    settled();
    EXPECT_EQ(seen, std::vector{5});
}

TEST_F(States, ATiedWatcherIsCalledAfterTheEndOfItsObjectUntilTheNextCleaning) {
    auto tied = std::make_shared<int>(0);
    watch(tied);
    watch();
    tied.reset();
    state->setCurrent(1);
    settled();
    EXPECT_EQ(seen, (std::vector{1, 1}));
    EXPECT_TRUE(state->watchers()[0]->isObsolete());
    EXPECT_FALSE(state->watchers()[1]->isObsolete());
    watch();
    EXPECT_EQ(settled(), 2u);
    auto const first = std::static_pointer_cast<ValueWatcher<int>>(state->watchers()[0]);
    EXPECT_FALSE(first->hasTiedObject());
    EXPECT_EQ(first->invoke("setHasTiedObject:"_sel, {true}), Value());
    EXPECT_TRUE(first->isObsolete()) << "now it claims to be tied, to nothing";
    EXPECT_TRUE(first->respondsToSelector("fired:"_sel));
    state->clean();
    EXPECT_EQ(settled(), 1u);
}

TEST_F(States, AnObserverGetsTheWatcherAndGoesWithItsEnd) {
    auto observer = make<Observer>();
    state->invoke("watchValue:action:"_sel, {Value(observer), "changed:"});
    state->setCurrent(6);
    EXPECT_EQ(settled(), 1u);
    EXPECT_EQ(observer->values, std::vector{6});
    auto const watcher = state->watchers()[0];
    EXPECT_FALSE(watcher->count() || watcher->object() || watcher->block());
    observer.reset();
    state->setCurrent(7);
    EXPECT_EQ(settled(), 1u);
    state->unwatch({.target = make<NSObject>()});
    EXPECT_EQ(settled(), 0u);
}

TEST_F(States, StandInTheTableUnderTheirDescriptions) {
    auto& table = s_completeGlobalState();
    EXPECT_EQ(table["Mode"], state);
    auto older = make<GlobalState<std::string>>("x", "Twice");
    WeakRef<Notifier> const dropped = make<GlobalState<int>>(1, "Dropped");
    auto const newer = make<GlobalState<int>>(1, "Twice");
    EXPECT_EQ(table["Twice"], newer);
    older.reset(); // takes the entry along, though it is the newer one's
    EXPECT_EQ(table["Twice"], nullptr);
    EXPECT_FALSE(dropped.expired()) << "the table keeps its states";
    auto const successor = make<GlobalState<int>>(2, "Dropped");
    EXPECT_TRUE(dropped.expired());
    EXPECT_EQ(table["Dropped"], successor) << "the replaced one has ended before the new one entered";

    // The last reference to a newer state may be the entry that the older one takes along.
    older = make<GlobalState<std::string>>("x", "Last");
    WeakRef<Notifier> const last = make<GlobalState<int>>(1, "Last");
    older.reset();
    EXPECT_TRUE(last.expired());
}

enum class Shade { Light, Dark };
struct Place {
    int x;
    std::string name;
    std::optional<Shade> shade;
    bool operator==(Place const&) const = default;
};

TEST_F(States, DescribeTheirValuesAsPeopleReadThem) {
    auto const described = [](auto value) { return make<GlobalState<decltype(value)>>(value, "D")->description(); };
    EXPECT_EQ(described(3.0), "D: 3.0");
    EXPECT_EQ(described(0.1F), "D: 0.1");
    EXPECT_EQ(described(std::numeric_limits<std::uint64_t>::max()), "D: 18446744073709551615");
    EXPECT_EQ(described(Shade::Dark), "D: Dark");
    EXPECT_EQ(described(static_cast<Shade>(9)), "D: Shade(9)");
    EXPECT_EQ(described(DateMonth::March), "D: " + DateMonth::March.name());
    EXPECT_EQ(described(Notifier::Coalescent::Now), "D: Coalescent(2)");
    EXPECT_EQ(described(std::vector{Place{1, "a", {}}, Place{2, "b", Shade::Light}}),
              "D: [Place(x: 1, name: \"a\", shade: nil), Place(x: 2, name: \"b\", shade: Light)]");
    EXPECT_EQ(described(std::map<std::string, std::pair<int, bool>>{{"a", {1, true}}}), "D: {\"a\": (1, true)}");
    EXPECT_EQ(described(std::map<int, int>()), "D: {}");
}

TEST_F(States, MayBeSetAndWatchedOnManyThreads) {
    std::atomic<int> last{0};
    state->watchValue([&](int value) { last = value; });
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread)
        threads.emplace_back([&, thread] {
            for (int i = 1; i <= 200; ++i) {
                state->setCurrent(thread * 1000 + i);
                if (i % 20 == 0) state->watchValue(std::make_shared<int>(0), [](int) {});
            }
        });
    for (auto& thread : threads) thread.join();
    watch();
    EXPECT_EQ(settled(), 2u);
    EXPECT_EQ(last, state->current()) << "whatever came last has been delivered";
}

TEST_F(States, ConnectionsBeginAndEndInsideADelivery) {
    Notifier::Connection outer, inner, later;
    outer = state->connect([&](int value) {
        seen.push_back(value);
        later.disconnect();
        inner = state->connect([&](int now) { seen.push_back(-now); });
        outer.disconnect();
    });
    later = state->connect([&](int) { seen.push_back(100); });
    for (int const value : {1, 2}) {
        state->setCurrent(value);
        settled();
    }
    inner.disconnect();
    state->setCurrent(3);
    EXPECT_EQ(settled(), 0u);
    EXPECT_EQ(seen, (std::vector{1, -2}));
}

} // namespace
} // namespace Tessarin
