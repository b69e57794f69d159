/* A program as one finds them: written for the C interface of dispatch queues, with nothing of this library's own. It prints the
   first thing that is not as it should be and ends with 1, or ends with 0 from an item of the main queue. */
#include <dispatch/dispatch.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define EXPECT(condition) ((condition) ? (void)0 : (fprintf(stderr, "line %d: %s\n", __LINE__, #condition), exit(1)))

static dispatch_time_t soon(void) { return dispatch_time(DISPATCH_TIME_NOW, (int64_t)(30 * NSEC_PER_SEC)); }

struct counter {
    dispatch_queue_t lock;
    dispatch_semaphore_t done;
    int value;
    int finalized;
};

static void increment(void* context) { ++((struct counter*)context)->value; }
static void signal_done(void* context) { dispatch_semaphore_signal(((struct counter*)context)->done); }
static void finalize(void* context) {
    ((struct counter*)context)->finalized = 1;
    signal_done(context);
}
static void apply_one(void* context, size_t index) {
    struct counter* counter = (struct counter*)context;
    EXPECT(index < 100);
    dispatch_sync_f(counter->lock, counter, increment);
}
static void read_value(void* context) { EXPECT(((struct counter*)context)->value >= 100); }

static char key;
static void check_specific(void* context) { EXPECT(dispatch_get_specific(&key) == context); }

static void check_queues(struct counter* counter) {
    dispatch_apply_f(100, dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0), counter, apply_one);
    EXPECT(counter->value == 100);

    dispatch_queue_t pool = dispatch_queue_create("pool", DISPATCH_QUEUE_CONCURRENT);
    dispatch_async_f(pool, counter, read_value);
    dispatch_barrier_async_f(pool, counter, increment);
    dispatch_barrier_sync_f(pool, counter, increment);
    EXPECT(counter->value == 102);
    EXPECT(strcmp(dispatch_queue_get_label(pool), "pool") == 0);

    dispatch_queue_attr_t background = dispatch_queue_attr_make_with_qos_class(DISPATCH_QUEUE_SERIAL, QOS_CLASS_BACKGROUND, 0);
    dispatch_queue_t slow = dispatch_queue_create("slow", background);
    dispatch_queue_set_specific(pool, &key, counter, NULL);
    dispatch_set_target_queue(slow, pool);
    dispatch_sync_f(slow, counter, check_specific);
    EXPECT(dispatch_queue_get_specific(slow, &key) == NULL);

    dispatch_suspend(slow);
    dispatch_async_f(slow, counter, increment);
    dispatch_sync_f(pool, counter, read_value);
    EXPECT(counter->value == 102);
    dispatch_resume(slow);
    dispatch_sync_f(slow, counter, read_value);
    EXPECT(counter->value == 103);

    dispatch_set_context(slow, counter);
    dispatch_set_finalizer_f(slow, finalize);
    dispatch_retain(slow);
    dispatch_release(slow);
    EXPECT(dispatch_get_context(slow) == counter && !counter->finalized);
    dispatch_release(slow);
    EXPECT(dispatch_semaphore_wait(counter->done, soon()) == 0 && counter->finalized);
    dispatch_release(pool);
    dispatch_release(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0)); /* does nothing */
}

static void check_waiting(struct counter* counter) {
    dispatch_group_t group = dispatch_group_create();
    dispatch_group_enter(group);
    EXPECT(dispatch_group_wait(group, dispatch_time(DISPATCH_TIME_NOW, (int64_t)NSEC_PER_MSEC)) != 0);
    dispatch_group_async_f(group, counter->lock, counter, increment);
    dispatch_group_leave(group);
    dispatch_group_notify_f(group, counter->lock, counter, signal_done);
    EXPECT(dispatch_group_wait(group, DISPATCH_TIME_FOREVER) == 0 && counter->value == 104);
    EXPECT(dispatch_semaphore_wait(counter->done, soon()) == 0);
    dispatch_release(group);

    EXPECT(dispatch_semaphore_wait(counter->done, DISPATCH_TIME_NOW) != 0);
    dispatch_after_f(dispatch_walltime(NULL, (int64_t)NSEC_PER_MSEC), counter->lock, counter, signal_done);
    EXPECT(dispatch_semaphore_wait(counter->done, soon()) == 0);

    static dispatch_once_t once;
    for (int i = 0; i < 2; ++i) dispatch_once_f(&once, counter, increment);
    EXPECT(counter->value == 105);
}

static void end(void* context) {
    struct counter* counter = (struct counter*)context;
    dispatch_release(counter->done);
    dispatch_release(counter->lock);
    exit(0);
}

static void run(void* context) {
    struct counter* counter = (struct counter*)context;
    check_queues(counter);
    check_waiting(counter);
    dispatch_async_f(dispatch_get_main_queue(), counter, end);
}

int main(void) {
    static struct counter counter;
    counter.lock = dispatch_queue_create("lock", DISPATCH_QUEUE_SERIAL);
    counter.done = dispatch_semaphore_create(0);
    dispatch_async_f(dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0), &counter, run);
    dispatch_main();
}
