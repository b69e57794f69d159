#include "Tessarin/state/Situation.h"

#include "Tessarin/platform/queues/DispatchSemaphore.h"
#include "Tessarin/platform/runtime/Format.h"

#include <gtest/gtest.h>
#include <sstream>
#include <thread>

namespace Tessarin {
namespace {

class Situations : public testing::Test {
protected:
    Situations() {
        situation->setCompletion([this] { order += '!'; });
    }
    /// The description when everything that was added has been done.
    std::string settled() {
        situation->workQueue()->sync([] {});
        std::string text;
        situation->syncQueue()->sync([&] { text = situation->description(); });
        return text;
    }
    Closure<void()> note(char letter) {
        return [this, letter] { order += letter; };
    }

    Ref<Situation> const situation = make<Situation>();
    std::string order; // written by one queue after the other
};

TEST_F(Situations, RunsOneAfterTheOtherAndCompletesWhenNoneIsPending) {
    EXPECT_EQ(situation->description(), "Situation: 0 pending, 0 completed");
    EXPECT_NE(situation->workQueue()->queue(), situation->syncQueue()->queue());
    EXPECT_STREQ(dispatch_queue_get_label(situation->workQueue()->queue()), "Situation");
    auto const mayGo = dispatch_semaphore_create(0);
    situation->addCondition([=] { dispatch_semaphore_wait(mayGo, DISPATCH_TIME_FOREVER); });
    for (char const letter : {'A', 'B', 'C'}) situation->addCondition(note(letter));
    situation->syncQueue()->sync([&] {
        EXPECT_EQ(situation->description(), "Situation: 4 pending, 0 completed");
        EXPECT_EQ(situation->pendingConditions().size(), 4u);
    });
    dispatch_semaphore_signal(mayGo);
    EXPECT_EQ(settled(), "Situation: 0 pending, 4 completed");
    EXPECT_EQ(order, "ABC!");
    situation->addCondition(make<Condition>()); // without work it is met in its turn
    EXPECT_EQ(settled(), "Situation: 0 pending, 5 completed");
    EXPECT_EQ(order, "ABC!!");
    situation->addCondition([this] {
        order += 'a';
        situation->addCondition(note('b'));
    });
    settled();
    EXPECT_EQ(settled(), "Situation: 0 pending, 7 completed");
    EXPECT_EQ(order, "ABC!!ab!") << "the second was pending before the first was met";
}

TEST_F(Situations, MeetingTwiceCountsTwice) {
    auto const condition = make<Condition>("twice", note('w'));
    situation->addCondition(condition);
    EXPECT_EQ(settled(), "Situation: 0 pending, 1 completed");
    condition->met();
    EXPECT_EQ(settled(), "Situation: -1 pending, 2 completed");
    EXPECT_EQ(order, "w!!");
    condition->start(); // it was started before
    condition->setStarted(false);
    condition->start();
    EXPECT_EQ(settled(), "Situation: -2 pending, 3 completed");
    EXPECT_EQ(order, "w!!w!");
}

TEST_F(Situations, DescribeThemselvesAndHoldEachOtherWhilePending) {
    EXPECT_EQ(make<Condition>()->description(), "Condition");
    std::ostringstream text;
    text << *make<Condition>("store") << ", " << *situation;
    EXPECT_EQ(text.str(), "store, Situation: 0 pending, 0 completed");
    EXPECT_EQ(fmt::format("{}", *situation), situation->description());
    WeakRef<Condition> weak;
    {
        auto const other = make<Situation>();
        auto const condition = make<Condition>();
        weak = condition;
        other->addCondition(condition);
        other->workQueue()->sync([] {});
        other->syncQueue()->sync([] {});
        condition->setSituation(nullptr); // what the condition holds is the situation
    }
    while (!weak.expired()) std::this_thread::yield();
}

TEST_F(Situations, OverriddenGettersAndSettersAreHeard) {
    class Hearing : public Situation {
    public:
        Closure<void()> const& completion() const override { return own; }
        void setPendingConditions(std::vector<Ref<Condition>> conditions) override {
            sizes += std::to_string(conditions.size());
            Situation::setPendingConditions(std::move(conditions));
        }
        Closure<void()> own = [this] { sizes += '!'; };
        std::string sizes;
    };
    auto const hearing = make<Hearing>();
    hearing->addCondition(make<Condition>([] {}));
    hearing->workQueue()->sync([] {});
    hearing->syncQueue()->sync([] {});
    EXPECT_EQ(hearing->sizes, "10!");
}

TEST_F(Situations, MisuseIsFatal) {
    EXPECT_DEATH(make<Condition>("lost")->start(), "^Condition.met: the condition was never added to a situation\n$");
    EXPECT_DEATH(situation->addCondition(Ref<Condition>()), "^Situation.addCondition: there is no condition\n$");
}

} // namespace
} // namespace Tessarin
