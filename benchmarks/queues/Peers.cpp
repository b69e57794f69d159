#include "benchmarks/queues/Peers.h"

#include "benchmarks/queues/Groups.h"
#include "benchmarks/support/DequeWorkers.h"
#include <algorithm>
#include <ctime>
#include <malloc.h>

namespace Tessarin::benchmarks {
namespace {

class HandMade : public PeerQueue {
public:
    explicit HandMade(int threads) : workers_(threads) {}
    void post(void (*work)(void*), void* argument) override {
        workers_.post([=] { work(argument); });
    }

private:
    DequeWorkers workers_;
};

template <int threads> std::unique_ptr<PeerQueue> make() { return std::make_unique<HandMade>(threads); }

} // namespace

Peer handMadePeer() { return {.serial = make<1>, .pool = make<2>}; }

std::vector<std::string> otherPeerNames() { return {"Asio", "Qt", "TBB"}; }
std::vector<Peer> const& otherPeers() {
    static std::vector<Peer> const peers{asioPeer(), qtPeer(), tbbPeer()};
    return peers;
}

void compare(Report& report, Row row, FunctionRef<double()> ours, QueueMaker Peer::*kind,
             FunctionRef<double(QueueMaker)> theirs) {
    std::vector<QueueMaker> makers{handMadePeer().*kind};
    for (auto const& peer : otherPeers()) makers.push_back(peer.*kind);
    std::vector<double> own;
    std::vector<std::vector<double>> others(makers.size());
    for (int run = 0; run < runs; ++run) {
        own.push_back(ours());
        for (std::size_t at = 0; at < makers.size(); ++at)
            if (makers[at]) others[at].push_back(theirs(makers[at]));
    }
    auto const middle = [](std::vector<double>& values) {
        std::ranges::sort(values);
        return values[values.size() / 2];
    };
    row.ours = middle(own);
    row.peer = "deque and condvar";
    row.theirs = middle(others[0]);
    for (std::size_t at = 1; at < makers.size(); ++at)
        row.others.push_back(makers[at] ? std::optional(middle(others[at])) : std::nullopt);
    report.add(std::move(row));
}

void finish(PeerQueue& queue) {
    std::binary_semaphore done{0};
    queue.post([](void* argument) { static_cast<std::binary_semaphore*>(argument)->release(); }, &done);
    done.acquire();
}

double processorSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

double heapBytes() {
    auto const heap = mallinfo2();
    return static_cast<double>(heap.uordblks + heap.hblkhd);
}

double percentile99(std::vector<double>& values) {
    auto const at = values.begin() + static_cast<std::ptrdiff_t>(values.size() * 99 / 100);
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

} // namespace Tessarin::benchmarks
