#include "benchmarks/mainloop/Loops.h"

#ifdef TESSARIN_HAS_QT
#include "integration/qt/QtMainQueue.h"
#include <QCoreApplication>

namespace Tessarin::benchmarks {
namespace {

class QtLoop : public Loop {
public:
    void run() override { QCoreApplication::exec(); }
    void quit() override { QCoreApplication::quit(); }
    void post(Call call, void* argument) override {
        QMetaObject::invokeMethod(&application_, [=] { call(argument); }, Qt::QueuedConnection);
    }

private:
    int argumentCount_ = 1;
    char name_[6] = "bench";
    char* arguments_[2] = {name_, nullptr};
    QCoreApplication application_{argumentCount_, arguments_};
    QtMainQueue mainQueue_;
};

} // namespace
std::unique_ptr<Loop> makeQtLoop() { return std::make_unique<QtLoop>(); }
} // namespace Tessarin::benchmarks
#else
std::unique_ptr<Tessarin::benchmarks::Loop> Tessarin::benchmarks::makeQtLoop() { return nullptr; }
#endif
