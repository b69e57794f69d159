#include "Tessarin/measurement/Timing.h"
#include "Tessarin/measurement/Measure.h"
#include "Tessarin/platform/foundation/json/JSON.h"
#include "tests/support/TemporaryFolder.h"

#include <cmath>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <sstream>
#include <thread>

namespace Tessarin {
namespace {

void settle() {
    dispatch_sync(Timing::queue(), [] {});
}
NSDate after(NSDate date, double seconds) { return date.dateByAddingTimeInterval(seconds); }

std::string printed(FunctionRef<void()> work) {
    testing::internal::CaptureStdout();
    work();
    return testing::internal::GetCapturedStdout();
}
bool reads(std::string const& text, std::string const& pattern) { return std::regex_match(text, std::regex(pattern)); }
constexpr auto clock = "\U0001F558 ";
std::string const seconds = "[0-9.e-]{1,12} s";

TEST(Timing, ReportsItsLapsEachSinceTheOneBefore) {
    auto const timing = make<Timing>("load", "/a/b/Loader");
    EXPECT_EQ(timing->averageLapDuration(), 0);
    EXPECT_TRUE(reads(timing->logString(), clock + seconds + ": load in Loader")) << timing->logString();
    auto const start = timing->start();
    timing->setLaps({{"parsed", after(start, 2)}, {std::nullopt, after(start, 2.5)}, {"early", after(start, 1.5)}});
    timing->setFinish(after(start, 4));
    EXPECT_EQ(timing->logString(),
              clock + std::string("4.0 s: load in Loader\n\t1.\t2.0 s\tparsed\n\t2.\t0.5 s\t\n\t3.\t1.0 s\tearly"));
    EXPECT_EQ(timing->averageLapDuration(), 0.5) << "the last lap by their number, although it is not the latest";
    EXPECT_EQ(printed([&] { timing->log(); }), timing->description() + "\n");
    auto const slashed = make<Timing>("", "folder/");
    slashed->setFinish(slashed->start());
    EXPECT_EQ(slashed->logString(), clock + std::string("0.0 s:  in "));
}

TEST(Timing, IsFoundByItsTitleUntilAnotherStarts) {
    EXPECT_EQ(printed([] {
                  EXPECT_EQ(Timing::type().lap(std::nullopt, "unknown"), nullptr);
                  Timing::type().stop("unknown");
              }),
              "");
    auto const first = Timing::start("twice", "/a/b/Loader");
    settle();
    EXPECT_EQ(Timing::type().lap("of the first", "twice"), first);
    auto const second = Timing::start("twice");
    settle();
    EXPECT_EQ(Timing::type().lap("of the second", "twice"), second);
    EXPECT_EQ(Timing::type().lap(std::nullopt, "twice"), second);
    settle();
    EXPECT_EQ(first->laps().size(), 1u);
    EXPECT_EQ(second->laps().at(0).note, "of the second");
    auto const line = "\n\t[12]\\.\t" + seconds + "\t";
    EXPECT_TRUE(reads(printed([] { Timing::type().stop("twice"); }),
                      clock + seconds + ": twice in " + line + "of the second" + line + "\n"));
    EXPECT_EQ(Timing::activeTimes().at("twice"), second) << "it stays, and stops again";
    auto const finish = *second->finish();
    while (!(NSDate() > finish)) std::this_thread::yield();
    printed([] { Timing::type().stop("twice"); });
    EXPECT_GT(*second->finish(), finish);
    Timing::modifyActiveTimes([](auto& times) { times.erase("twice"); });
    EXPECT_EQ(Timing::type().lap("late", "twice"), nullptr);
    EXPECT_STREQ(dispatch_queue_get_label(Timing::queue()), "timing queue");
}

TEST(Timing, TakesTheMomentOfTheCallAndLeavesTheRestToItsQueue) {
    dispatch_suspend(Timing::queue());
    auto const timing = Timing::start("suspended", "");
    timing->lap("called");
    NSDate const called;
    EXPECT_EQ(Timing::type().lap({}, "suspended"), nullptr) << "not registered yet";
    EXPECT_TRUE(timing->laps().empty());
    timing->stop();
    std::string const summary = printed([] { Timing::time("sort", 3, [] {}); });
    EXPECT_EQ(summary, clock + std::string("sort average duration 0.0 sec\n")) << "laps on their way are not waited for";
    dispatch_resume(Timing::queue());
    settle();
    EXPECT_LE(timing->laps().at(0).date, called);
    EXPECT_EQ(Timing::activeTimes().at("suspended"), timing);
    Timing::modifyActiveTimes([](auto& times) { times.erase("suspended"); });
}

TEST(Timing, AStartCostsTheSameAmongManyTitles) {
    auto const secondsOfStarts = [] {
        settle();
        NSDate const start;
        for (int at = 0; at < 1'000; ++at) Timing::start("again");
        settle();
        return -start.timeIntervalSinceNow();
    };
    auto const few = secondsOfStarts();
    for (int at = 0; at < 16'000; ++at) Timing::start("title " + std::to_string(at));
    EXPECT_LT(secondsOfStarts(), 10 * few + 0.05);
    Timing::setActiveTimes({});
}

TEST(Timing, RepeatsABlockAndPrintsTheAverage) {
    auto const registered = Timing::activeTimes().size();
    int calls = 0;
    auto const head = clock + std::string("sort average duration [0-9.e-]+ sec");
    auto const line = [](char const* number) { return "\n\t#  " + std::string(number) + "\\.\t" + seconds; };
    std::string text;
    do { // until the queue was as fast as this thread
        text = printed([&] { Timing::time("sort", 3, [&] { ++calls, settle(); }); });
        ASSERT_TRUE(reads(text, head + line("1") + line("2") + "(" + line("3") + ")?\n")) << text;
    } while (!reads(text, head + line("1") + line("2") + line("3") + "\n"));
    EXPECT_EQ(calls % 3, 0);
    calls = 0;
    text = printed([&] { Timing::time([&] { ++calls; }); });
    EXPECT_EQ(calls, 10) << "ten times, when nothing is said";
    EXPECT_TRUE(text.starts_with(clock + std::string(" average duration "))) << text;
    EXPECT_EQ(Timing::activeTimes().size(), registered) << "it is never registered";
}

TEST(Timing, OverriddenSettersHearWhatIsModified) {
    struct Heard : Timing {
        int times = 0;
        void setFinish(std::optional<NSDate> finish) override { ++times, Timing::setFinish(finish); }
        void setLaps(Laps laps) override { ++times, Timing::setLaps(std::move(laps)); }
    };
    auto const timing = make<Heard>("heard", "");
    timing->stop();
    timing->modifyFinish([](auto& finish) { finish.reset(); });
    timing->lap("a");
    dispatch_sync(Timing::queue(), [] {});
    EXPECT_EQ(timing->times, 3);
    EXPECT_EQ(timing->finish(), std::nullopt);
    EXPECT_EQ(timing->laps().size(), 1u);
}

TEST(Timing, ManyThreadsLoseNoLap) {
    auto const timing = make<Timing>("many", "");
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number)
        threads.emplace_back([&] {
            for (int i = 0; i < 50; ++i) timing->lap("note");
        });
    for (auto& thread : threads) thread.join();
    settle();
    EXPECT_EQ(timing->laps().size(), 200u);
}

Ref<Timing> finished(std::string title, double length, Timing::Laps laps = {}) {
    auto timing = make<Timing>(std::move(title), "/a/File.cpp");
    timing->setFinish(after(timing->start(), length));
    timing->setLaps(std::move(laps));
    return timing;
}

TEST(TimingTrace, SlicesNestOnTheRowsOfTheirThreads) {
    tests::TemporaryFolder const folder;
    auto const url = NSURL::fileURLWithPath(folder.path("trace.json"));
    auto const outer = finished("outer", 10),
               inner = finished("inner", 5, {{"half", after(outer->start(), 3)}, {{}, after(outer->start(), 4)}}),
               across = finished("across", 20);
    Ref<Timing> beside;
    std::thread([&] { beside = finished("beside \"x\"", 30); }).join();
    auto const running = make<Timing>("", "");
    Timing::writeTraceToURL(url, {across, inner, running, beside, outer});

    auto const document = JSON::contentsOfURL(url);
    std::map<std::string, Dictionary> events;
    for (auto const& event : document.dictionary()["traceEvents"].list()) {
        auto const& each = event.dictionary();
        events[std::string(each["ph"].text()) + " " + std::string(each["name"].text())] = each;
    }
    auto const number = [&](char const* name, char const* key) { return events.at(name)[key].number(); };
    auto const end = [&](char const* name) { return number(name, "ts") + number(name, "dur"); };
    EXPECT_EQ(number("X outer", "ts"), 0) << "microseconds since the first start";
    EXPECT_NEAR(number("X outer", "dur"), 10e6, 1);
    EXPECT_TRUE(number("X inner", "ts") >= 0 && end("X inner") <= end("X outer"));
    EXPECT_EQ(number("X inner", "tid"), number("X outer", "tid"));
    EXPECT_NE(number("X beside \"x\"", "tid"), number("X outer", "tid"));
    EXPECT_NEAR(number("i half", "ts"), 3e6, 1);
    EXPECT_NEAR(events.at("i lap 2")["args"].dictionary()["seconds"].number(), 1, 1e-6);
    EXPECT_EQ(number("b across", "id"), number("e across", "id")) << "what overlaps without nesting gets a row of its own";
    EXPECT_FALSE(events.contains("X across"));
    EXPECT_EQ(events.at("X outer")["args"].dictionary()["file"].text(), "File.cpp");
    EXPECT_TRUE(events.at("X timing")["args"].dictionary()["running"].boolean());
    EXPECT_LE(end("X timing"), end("X inner"));
    EXPECT_EQ(events.size(), 8u);
}

TEST(TimingTrace, TitlesAndMomentsThatJSONCannotSayStillGiveATrace) {
    tests::TemporaryFolder const folder;
    auto const url = NSURL::fileURLWithPath(folder.path("trace.json"));
    auto const never = NSDate::dateWithTimeIntervalSinceReferenceDate(std::nan(""));
    auto const timing =
        finished("bad \xFF title", 1, {{"\xC3", never}, {"far", NSDate::dateWithTimeIntervalSinceReferenceDate(1e300)}});
    Timing::writeTraceToURL(url, {timing});
    auto const document = JSON::contentsOfURL(url);
    auto const& events = document.dictionary()["traceEvents"].list();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0].dictionary()["name"].text(), "bad \uFFFD title");
    EXPECT_EQ(events[1].dictionary()["name"].text(), "\uFFFD");
    EXPECT_EQ(events[1].dictionary()["args"].dictionary()["seconds"].text(), "nan");
}

TEST(Measure, PrintsItsTwoForms) {
    bool ran = false;
    EXPECT_TRUE(reads(printed([&] { measure("load", {.closure = [&] { ran = true; }}); }), "load took [0-9.e-]+ sec\n"));
    EXPECT_TRUE(ran);
    auto const wait = [] {
        for (NSDate const start; std::abs(start.timeIntervalSinceNow()) < 0.02;) std::this_thread::yield();
    };
    EXPECT_TRUE(reads(printed([&] { measure("load", {.block = wait}); }), "load:[0-9]+\\.[0-9]{2}\n"));
    EXPECT_TRUE(reads(printed([&] { measure(std::nullopt, {.block = wait}); }), ":[0-9]+\\.[0-9]{2}\n"));
    EXPECT_GE(std::stod(printed([&] { measure({.block = wait}); }).substr(1)), 0.02);
    ran = false;
    IF_DEBUG([&] { ran = true; });
    EXPECT_FALSE(ran);
}

} // namespace
} // namespace Tessarin
