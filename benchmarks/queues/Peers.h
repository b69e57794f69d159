#pragma once
// What else runs work elsewhere. Each peer's headers stay in a source file of its own, since toolkits define macros.
#include "benchmarks/support/Report.h"

#include <array>
#include <memory>
#include <optional>
#include <semaphore>

namespace Tessarin::benchmarks {

/// A queue or a pool of a peer. Work is a function and its argument, which costs none of them more than its own closures do.
class PeerQueue {
public:
    virtual ~PeerQueue() = default;
    virtual void post(void (*work)(void*), void* argument) = 0;
};
using QueueMaker = std::unique_ptr<PeerQueue> (*)();

/// Null where the peer was not there at build time, or has no such thing.
struct Peer {
    QueueMaker serial = nullptr; // runs one piece of work at a time, in their order
    QueueMaker pool = nullptr;   // runs two at a time
    double (*syncToMain)(int count) = nullptr; // seconds
    /// So many timers that come due within a second: processor time in seconds, and how late 99 % are at most in milliseconds.
    std::array<double, 2> (*timers)(int count) = nullptr;
    /// Heap bytes of an idle queue, a timer and a queued item.
    std::array<double, 3> (*bytes)(int count) = nullptr;
};
Peer handMadePeer();
Peer asioPeer();
Peer qtPeer();
Peer tbbPeer();

/// The names of the report's further columns, and the makers in their order.
std::vector<std::string> otherPeerNames();
std::vector<Peer> const& otherPeers();

/// Measures ours and every peer in turn, several times, and adds a row of the medians; the peer of its ratio is the hand-made
/// one.
void compare(Report& report, Row row, FunctionRef<double()> ours, QueueMaker Peer::*kind, FunctionRef<double(QueueMaker)> theirs);

/// Waits until everything that was posted to a serial queue has run.
void finish(PeerQueue& queue);

double processorSeconds();
/// Whole bytes from the heap so far.
double heapBytes();
double percentile99(std::vector<double>& values);

} // namespace Tessarin::benchmarks
