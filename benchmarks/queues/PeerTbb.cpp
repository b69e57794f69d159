#include "benchmarks/queues/Peers.h"

#ifdef TESSARIN_HAS_TBB
#include <oneapi/tbb/flow_graph.h>
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/task_arena.h>

namespace Tessarin::benchmarks {
namespace {

namespace tbb = oneapi::tbb;

struct Work {
    void (*function)(void*);
    void* argument;
};

/// Its serial queue: a node of a flow graph that takes one message at a time, in their order.
class Node : public PeerQueue {
public:
    ~Node() override { graph_.wait_for_all(); }
    void post(void (*work)(void*), void* argument) override { node_.try_put({work, argument}); }

private:
    tbb::flow::graph graph_;
    tbb::flow::function_node<Work> node_{graph_, tbb::flow::serial, [](Work const& work) { work.function(work.argument); }};
};

/// One arena for all: a new one would start without threads, and threads in another one would not come.
class Arena : public PeerQueue {
public:
    void post(void (*work)(void*), void* argument) override {
        static tbb::global_control const threads(tbb::global_control::max_allowed_parallelism, 3); // the main thread counts
        static tbb::task_arena arena(2, 0);
        arena.enqueue([=] { work(argument); });
    }
};

} // namespace

Peer tbbPeer() {
    return {.serial = []() -> std::unique_ptr<PeerQueue> { return std::make_unique<Node>(); },
            .pool = []() -> std::unique_ptr<PeerQueue> { return std::make_unique<Arena>(); }};
}

} // namespace Tessarin::benchmarks
#else
Tessarin::benchmarks::Peer Tessarin::benchmarks::tbbPeer() { return {}; }
#endif
