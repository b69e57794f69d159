#include "benchmarks/state/Peers.h"

#ifdef TESSARIN_HAS_QTCORE
#include <QProperty>

namespace Tessarin::benchmarks {
namespace {

class QtObservable : public Observable {
public:
    void set(int count) override {
        for (int i = 0; i < count; ++i) value_.setValue(i);
    }

private:
    QProperty<int> value_;
};

} // namespace
std::unique_ptr<Observable> makeQtObservable() { return std::make_unique<QtObservable>(); }
} // namespace Tessarin::benchmarks
#else
std::unique_ptr<Tessarin::benchmarks::Observable> Tessarin::benchmarks::makeQtObservable() { return nullptr; }
#endif
