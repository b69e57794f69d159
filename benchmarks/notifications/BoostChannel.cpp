#include "benchmarks/notifications/Peers.h"

#if __has_include(<boost/signals2.hpp>)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wall"
#pragma GCC diagnostic ignored "-Wextra"
#include <boost/signals2.hpp>
#pragma GCC diagnostic pop

namespace Tessarin::benchmarks {
namespace {

/// The peer that is thread-safe, too.
class BoostChannel : public Channel {
public:
    void add(long& heard) override {
        signal_.connect([&heard] { ++heard; });
    }
    void post() override { signal_(); }

private:
    boost::signals2::signal<void()> signal_;
};

} // namespace
std::unique_ptr<Channel> makeBoostChannel() { return std::make_unique<BoostChannel>(); }
} // namespace Tessarin::benchmarks
#else
std::unique_ptr<Tessarin::benchmarks::Channel> Tessarin::benchmarks::makeBoostChannel() { return nullptr; }
#endif
