// A Qt program: three threads work and report to the main queue, which the application's own event loop runs.
#include <QCoreApplication>
#include <Tessarin/Tessarin.h>
#include <Tessarin/integration/qt/QtMainQueue.h>

int main(int argc, char** argv) {
    using namespace Tessarin;
    QCoreApplication const application(argc, argv);
    QtMainQueue const mainQueue;

    auto const group = dispatch_group_create();
    for (int worker = 1; worker <= 3; ++worker)
        dispatch_group_async(group, dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), [worker, group] {
            for (int step = 1; step <= 3; ++step)
                dispatch_group_async(group, dispatch_get_main_queue(),
                                     [=] { print("worker " + std::to_string(worker) + ", step " + std::to_string(step)); });
        });
    dispatch_group_notify(group, dispatch_get_main_queue(), [] { QCoreApplication::quit(); });

    return QCoreApplication::exec();
}
