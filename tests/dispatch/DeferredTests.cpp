#include "Tessarin/dispatch/Deferred.h"
#include "Tessarin/dispatch/DeferredIn.h"
#include "Tessarin/dispatch/Pending.h"

#include <gtest/gtest.h>
#include <thread>

namespace Tessarin {
namespace {

TEST(Deferred, RunsItsBlockOnceEvenWhenItYieldsNothing) {
    for (std::optional<int> const result : {std::optional(5), std::optional<int>()}) {
        int calls = 0;
        auto const deferred = make<Deferred<int>>([&] { return ++calls, result; });
        EXPECT_FALSE(deferred->materialized());
        for (int i = 0; i < 2; ++i) EXPECT_EQ(deferred->fulfill(), result);
        EXPECT_EQ(calls, 1);
        EXPECT_TRUE(deferred->materialized());
        deferred->setMaterialized(false);
        deferred->fulfill();
        EXPECT_EQ(calls, 2);
    }
}

TEST(DeferredIn, RunsInsideItsContextFromAnyThread) {
    auto const context = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    std::thread::id inside;
    int calls = 0;
    auto const deferred = make<DeferredIn<int>>(context, [&](Ref<NSManagedObjectContext> const& given) {
        EXPECT_EQ(given, context);
        // Inside, so this runs at once and not behind it.
        bool inlined = false;
        given->performBlockAndWait([&] { inlined = true; });
        EXPECT_TRUE(inlined);
        inside = std::this_thread::get_id();
        return ++calls;
    });
    EXPECT_FALSE(deferred->materializeBlock());
    std::optional<int> result;
    std::thread([&] { result = deferred->fulfill(); }).join();
    EXPECT_EQ(result, 1);
    context->performBlockAndWait([&] { EXPECT_EQ(deferred->fulfill(), 1); });
    EXPECT_EQ(calls, 1);

    // While the queue is held by somebody else, it waits.
    bool held = false;
    context->performBlock([&] { held = true; });
    EXPECT_TRUE(*make<DeferredIn<bool>>(context, [&](auto const&) { return held; })->fulfill());
}

TEST(Deferred, KeepsWhatCannotBeCopiedAndSoDoesPending) {
    auto const deferred = make<Deferred<std::unique_ptr<int>>>([] { return std::make_unique<int>(5); });
    EXPECT_EQ(**deferred->fulfill(), 5);
    deferred->modifyActual([](auto& actual) { ++**actual; });
    EXPECT_EQ(**deferred->actual(), 6);
    auto const pending = make<Pending<std::unique_ptr<int>>>([] { return std::make_unique<int>(7); });
    EXPECT_EQ(dispatch_semaphore_wait(pending->semaphore(), DISPATCH_TIME_FOREVER), 0);
    EXPECT_EQ(**pending->actual(), 7);
}

TEST(Pending, StartsAtOnceInTheBackgroundAndIsFulfilledWhenDone) {
    auto const mayEnd = dispatch_semaphore_create(0);
    char const* label = nullptr;
    auto pending = make<Pending<int>>([&] {
        dispatch_semaphore_wait(mayEnd, DISPATCH_TIME_FOREVER);
        label = dispatch_queue_get_label(nullptr);
        return 42;
    });
    dispatch_semaphore_signal(mayEnd); // reached although the work had not ended
    EXPECT_EQ(pending->fulfill(), 42);
    EXPECT_EQ(pending->actual(), 42);
    EXPECT_STREQ(label, dispatch_queue_get_label(dispatch_get_global_queue(QOS_CLASS_BACKGROUND, 0)));
}

TEST(Pending, EndsItsWorkThoughNobodyKeepsIt) {
    auto const ended = dispatch_semaphore_create(0);
    class Signalling : public Pending<Ref<dispatch_semaphore_t>> {
        void setActual(std::optional<Ref<dispatch_semaphore_t>> actual) override { dispatch_semaphore_signal(**actual); }
    };
    make<Signalling>([=] { return std::make_shared<dispatch_semaphore_t>(ended); });
    EXPECT_EQ(dispatch_semaphore_wait(ended, dispatch_time(DISPATCH_TIME_NOW, 10 * NSEC_PER_SEC)), 0);
}

TEST(Pending, ASubclassChoosesTheQueueAndAbsenceOfOneIsFatal) {
    class OnMine : public Pending<std::string> {
        dispatch_queue_t dispatchQueue() const override { return dispatch_queue_create("mine", DISPATCH_QUEUE_SERIAL); }
    };
    EXPECT_EQ(make<OnMine>([] { return dispatch_queue_get_label(nullptr); })->fulfill(), "mine");
    class Nowhere : public Pending<int> {
        dispatch_queue_t dispatchQueue() const override { return nullptr; }
    };
    EXPECT_DEATH(make<Nowhere>([] { return 1; }), "^Pending.init: there is no queue to work on\n$");
}

} // namespace
} // namespace Tessarin
