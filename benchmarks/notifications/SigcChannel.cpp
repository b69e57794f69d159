#include "benchmarks/notifications/Peers.h"

#ifdef TESSARIN_HAS_SIGCPP
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wextra"
#include <sigc++/sigc++.h>
#pragma GCC diagnostic pop

namespace Tessarin::benchmarks {
namespace {

class SigcChannel : public Channel {
public:
    void add(long& heard) override {
        signal_.connect([&heard] { ++heard; });
    }
    void post() override { signal_(); }

private:
    sigc::signal<void()> signal_;
};

} // namespace
std::unique_ptr<Channel> makeSigcChannel() { return std::make_unique<SigcChannel>(); }
} // namespace Tessarin::benchmarks
#else
std::unique_ptr<Tessarin::benchmarks::Channel> Tessarin::benchmarks::makeSigcChannel() { return nullptr; }
#endif
