#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>
#if !defined(emit) || !defined(signals) || !defined(slots) || !defined(foreach)
#error "Qt's keywords are to be macros here"
#endif
// After the toolkit's headers on purpose: their macros must not harm the library's.
#include "Tessarin/Tessarin.h"
#include "integration/qt/QtMainQueue.h"
#include "tests/integration/Loop.h"

#include <functional>
#include <vector>

namespace Tessarin::tests {
namespace {

class QtLoop : public Loop {
public:
    QtLoop() {
        QObject::connect(QCoreApplication::eventDispatcher(), &QAbstractEventDispatcher::aboutToBlock, &mainQueue_,
                         [this] { ++waits_; });
    }
    void run() override {
        QEventLoop loop;
        loops_.push_back(&loop);
        loop.exec();
        loops_.pop_back();
    }
    void quit() override { loops_.back()->quit(); }
    void callAfter(int milliseconds, std::function<void()> work) override { QTimer::singleShot(milliseconds, std::move(work)); }
    void callWhenIdle(std::function<void()> work) override { QTimer::singleShot(0, std::move(work)); }
    int waits() const override { return waits_; }

private:
    int argumentCount_ = 1;
    char name_[5] = "test";
    char* arguments_[2] = {name_, nullptr};
    QCoreApplication application_{argumentCount_, arguments_};
    QtMainQueue mainQueue_;
    std::vector<QEventLoop*> loops_;
    int waits_ = 0;
};

} // namespace

std::unique_ptr<Loop> makeLoop() { return std::make_unique<QtLoop>(); }

} // namespace Tessarin::tests
