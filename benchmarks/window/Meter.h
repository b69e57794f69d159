#pragma once
#include <QApplication>
#include <vector>

namespace Tessarin::benchmarks {

/// Processor time of the main thread, in milliseconds.
double mainMilliseconds();

/// An application that notes what each event costs the main thread.
class MeteredApplication : public QApplication {
public:
    using QApplication::QApplication;
    bool notify(QObject* receiver, QEvent* event) override;

    /// What the events since the last call cost: all together, and all but one in a thousand at most.
    struct Cost {
        double sum = 0, most = 0;
    };
    Cost take();

private:
    std::vector<double> events_;
    bool isInside_ = false; // of an event that sends others
};

/// Runs events until `is`, waiting for more where there are none.
template <class Is> void runUntil(Is is) {
    while (!is()) QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 20);
}
/// What is queued now, and what comes of it: paintings.
inline void settle() {
    for (int round = 0; round < 3; ++round) QCoreApplication::processEvents();
}

} // namespace Tessarin::benchmarks
