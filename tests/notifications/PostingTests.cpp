#include "Tessarin/platform/foundation/notifications/NSNotification.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"

#include "tests/support/MainThread.h"
#include <future>
#include <gtest/gtest.h>
#include <thread>

namespace App {
class Editor : public Tessarin::NSObject {
public:
    void save() { ++saves; }
    static Tessarin::SelectorTable selectors() { return {{Tessarin::Selector{"save"}, &Editor::save}}; }
    int saves = 0;
};
} // namespace App

namespace Tessarin {
namespace {

using Observation = NSNotification::Observation;

TEST(Observation, LastsAsLongAsItIsKept) {
    int heard = 0;
    Value info;
    auto observation = make<Observation>(ObservationOptions{.name = "Posting.kept", .block = [&](auto const& notification) {
                                                                ++heard;
                                                                info = notification->userInfo();
                                                            }});
    EXPECT_NE(observation->token(), nullptr);
    NSNotification::postNotification("Posting.kept", nullptr, Dictionary{{"n", 1}});
    EXPECT_EQ(heard, 1);
    EXPECT_EQ(info, Value(Dictionary{{"n", 1}}));
    observation.reset();
    NSNotification::postNotification("Posting.kept");
    EXPECT_EQ(heard, 1);
    EXPECT_DEATH(make<Observation>(), "\"init\\(\\)\" not implemented on \"Tessarin.Observation\"");
}

TEST(Observation, OneOffEndsAfterItsFirstDeliveryUnlessItsTokenWasTaken) {
    auto const sender = make<NSObject>();
    for (bool const isTaken : {false, true}) {
        int heard = 0;
        auto observation = make<Observation>(
            ObservationOptions{.name = "Posting.once", .object = sender, .oneOff = true, .block = [&](auto const&) { ++heard; }});
        auto token = observation->token();
        if (isTaken) observation->modifyToken([](Ref<NSObject>& current) { current = nullptr; });
        NSNotification::postNotification("Posting.once"); // another sender
        for (int i = 0; i < 2; ++i) NSNotification::postNotification("Posting.once", sender);
        EXPECT_EQ(observation->token(), isTaken ? nullptr : token);
        observation.reset();
        NSNotification::postNotification("Posting.once", sender);
        EXPECT_EQ(heard, isTaken ? 3 : 1) << "without a token nothing is removed";
        NSNotificationCenter::defaultCenter()->removeObserver(*token);
    }
}

TEST(Posting, OnTheMainThreadHappensInALaterTurn) {
    std::promise<std::thread::id> delivered;
    bool afterwards = false;
    auto const observation = make<Observation>(ObservationOptions{.name = "Posting.main", .block = [&](auto const&) {
                                                                      EXPECT_TRUE(afterwards);
                                                                      delivered.set_value(std::this_thread::get_id());
                                                                  }});
    std::thread::id main;
    tests::onMainThread([&] {
        main = std::this_thread::get_id();
        NSNotification::postNotificationOnMainThread("Posting.main");
        afterwards = true; // the post has not happened, although this is the main thread
    });
    EXPECT_EQ(delivered.get_future().get(), main);
    int heard = 0;
    auto const direct = make<Observation>(ObservationOptions{.name = "Posting.message", .block = [&](auto const&) { ++heard; }});
    classNamed("Tessarin.NSNotification")->invoke("postNotification:object:userInfo:"_sel, {"Posting.message", nullptr, nullptr});
    EXPECT_EQ(heard, 1);
    auto const block = make<ObservationBlock>([&](auto const&) { ++heard; });
    auto const observing = classOf<Observation>().invoke("initWithName:object:oneOff:queue:block:"_sel,
                                                         {"Posting.sent", nullptr, true, nullptr, block});
    for (int i = 0; i < 2; ++i) NSNotification::postNotification("Posting.sent");
    EXPECT_EQ(heard, 2);
}

TEST(Observing, RegistersByNameAndRemovesOneOrAll) {
    registerClass<App::Editor>();
    auto const editor = make<App::Editor>();
    auto const sender = make<NSObject>();
    auto const saves = [&](std::string_view name, Ref<NSObject> from = nullptr) {
        editor->saves = 0;
        NSNotification::postNotification(name, std::move(from));
        return editor->saves;
    };
    for (char const* name : {"Observing.a", "Observing.b"}) editor->addAsObserver(name, "save"_sel);
    editor->addAsObserver("Observing.a", "save"_sel, sender);
    EXPECT_EQ(saves("Observing.a"), 1);
    EXPECT_EQ(saves("Observing.a", sender), 2);
    editor->removeAsObserver("Observing.a");
    EXPECT_EQ(saves("Observing.a", sender), 0);
    EXPECT_EQ(saves("Observing.b"), 1);
    editor->addAsObserver("Observing.c", "save"_sel);
    editor->removeAsObserver();
    EXPECT_EQ(saves("Observing.b") + saves("Observing.c"), 0);
}

TEST(Observing, AMissingSelectorPrintsItsLineAndRegistersNothing) {
    registerClass<App::Editor>();
    auto const editor = make<App::Editor>();
    testing::internal::CaptureStdout();
    editor->addAsObserver("DocumentSaved", "reload:"_sel);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Trying to register for a notification (DocumentSaved, but App.Editor doesn't respond to reload:\n");
    NSNotification::postNotification("DocumentSaved"); // would be fatal
}

} // namespace
} // namespace Tessarin
