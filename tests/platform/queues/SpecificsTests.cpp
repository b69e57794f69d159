#include "tests/platform/queues/Support.h"

#include <atomic>

namespace Tessarin {
namespace {

using namespace tests;

char const key = 0;
int values[4];

void tag(dispatch_queue_t const& queue, void* value) { dispatch_queue_set_specific(queue, &key, value, nullptr); }

void* foundOn(dispatch_queue_t const& queue) {
    void* found = nullptr;
    dispatch_sync(queue, [&] { found = dispatch_get_specific(&key); });
    return found;
}

TEST(Specifics, NearestValueAlongTheTargetsAndNothingFromTheCallersQueue) {
    auto const root = serialQueue();
    auto const middle = queueOn(root, DISPATCH_QUEUE_CONCURRENT);
    auto const leaf = queueOn(middle);
    auto const stranger = serialQueue();
    tag(root, &values[0]);
    EXPECT_EQ(foundOn(leaf), &values[0]);
    tag(middle, &values[1]);
    EXPECT_EQ(foundOn(leaf), &values[1]);
    EXPECT_EQ(dispatch_queue_get_specific(leaf, &key), nullptr); // only its own
    tag(middle, nullptr);
    EXPECT_EQ(foundOn(leaf), &values[0]);

    void* inside = &values[3];
    void* afterwards = nullptr;
    dispatch_sync(leaf, [&] {
        inside = foundOn(stranger);
        afterwards = dispatch_get_specific(&key);
    });
    EXPECT_EQ(inside, nullptr);
    EXPECT_EQ(afterwards, &values[0]);
    EXPECT_EQ(dispatch_get_specific(&key), nullptr); // a plain thread
    EXPECT_EQ(foundOn(dispatch_get_global_queue(0, 0)), nullptr);
}

TEST(Specifics, ManyKeysAndEveryDestructorOnce) {
    static std::atomic<int> destroyed;
    destroyed = 0;
    auto const destructor = [](void* value) { destroyed += *static_cast<int*>(value); };
    char keys[20];
    int number = 1;
    {
        auto const queue = serialQueue();
        for (char& each : keys) dispatch_queue_set_specific(queue, &each, &number, destructor);
        for (char& each : keys) EXPECT_EQ(dispatch_queue_get_specific(queue, &each), &number);
        dispatch_queue_set_specific(queue, &keys[0], &number,
                                    nullptr); // replaced: the old one goes, the new one has no destructor
        dispatch_queue_set_specific(queue, &keys[1], nullptr, nullptr); // removed
        EXPECT_EQ(dispatch_queue_get_specific(queue, &keys[1]), nullptr);
        EXPECT_TRUE(eventually([] { return destroyed == 2; }));
    }
    EXPECT_TRUE(eventually([] { return destroyed == 20; }));
}

} // namespace
} // namespace Tessarin
