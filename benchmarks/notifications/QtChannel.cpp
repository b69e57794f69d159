#include "benchmarks/notifications/Peers.h"

#ifdef TESSARIN_HAS_QTCORE
#include <QObject>

namespace Tessarin::benchmarks {
namespace {

/// A signal that every object has, so that no generated source is needed.
class QtChannel : public Channel {
public:
    void add(long& heard) override {
        QObject::connect(&object_, &QObject::destroyed, &object_, [&heard] { ++heard; });
    }
    void post() override { Q_EMIT object_.destroyed(nullptr); }

private:
    QObject object_;
};

} // namespace
std::unique_ptr<Channel> makeQtChannel() { return std::make_unique<QtChannel>(); }
} // namespace Tessarin::benchmarks
#else
std::unique_ptr<Tessarin::benchmarks::Channel> Tessarin::benchmarks::makeQtChannel() { return nullptr; }
#endif
