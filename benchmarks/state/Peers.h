#pragma once
#include <memory>

namespace Tessarin::benchmarks {

/// An observable integer of a peer.
class Observable {
public:
    virtual ~Observable() = default;
    /// So many values in succession, each another one.
    virtual void set(int count) = 0;
};

/// Null where the peer was not installed at build time.
std::unique_ptr<Observable> makeQtObservable();
std::unique_ptr<Observable> makeGLibObservable();

} // namespace Tessarin::benchmarks
