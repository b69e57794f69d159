#pragma once
#include "Tessarin/platform/queues/DispatchMain.h"
#include <QEvent>
#include <QSocketNotifier>

namespace Tessarin {

/// Has Qt's event loop run the main queue's items, from construction to destruction: in `QCoreApplication::exec`, and in nested
/// loops. To be made after the application object, on the process's first thread. Any thread may post, as ever; what is posted
/// before or after this object's time waits for the next one.
///
///     QApplication application(argc, argv);
///     Tessarin::QtMainQueue const mainQueue;
///     return application.exec();
class QtMainQueue : public QSocketNotifier {
public:
    explicit QtMainQueue(QObject* parent = nullptr) : QSocketNotifier(mainQueueDescriptor(), QSocketNotifier::Read, parent) {}

protected:
    bool event(QEvent* event) override {
        if (event->type() != QEvent::SockAct) return QSocketNotifier::event(event);
        drainMainQueue();
        return true;
    }
};

} // namespace Tessarin
