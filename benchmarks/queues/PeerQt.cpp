#include "benchmarks/queues/Peers.h"

#ifdef TESSARIN_HAS_QTCORE
#include <QCoreApplication>
#include <QThreadPool>
#include <thread>

namespace Tessarin::benchmarks {
namespace {

class Pool : public PeerQueue {
public:
    explicit Pool(int threads) { pool_.setMaxThreadCount(threads); }
    void post(void (*work)(void*), void* argument) override {
        pool_.start([=] { work(argument); });
    }

private:
    QThreadPool pool_;
};
template <int threads> std::unique_ptr<PeerQueue> make() { return std::make_unique<Pool>(threads); }

double syncToMain(int count) {
    static int argumentCount = 1;
    static char name[] = "bench";
    static char* arguments[] = {name, nullptr};
    QCoreApplication application(argumentCount, arguments);
    double seconds = 0;
    std::thread thread([&] {
        seconds = secondsOf([&] {
            for (int i = 0; i < count; ++i) QMetaObject::invokeMethod(&application, [] {}, Qt::BlockingQueuedConnection);
        });
        application.quit();
    });
    QCoreApplication::exec();
    thread.join();
    return seconds;
}

} // namespace

Peer qtPeer() { return {.serial = make<1>, .pool = make<2>, .syncToMain = syncToMain}; }

} // namespace Tessarin::benchmarks
#else
Tessarin::benchmarks::Peer Tessarin::benchmarks::qtPeer() { return {}; }
#endif
