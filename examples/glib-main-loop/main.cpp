// A GLib program, as any with GTK: three threads work and report to the main queue, which the program's own main loop runs.
#include <glib.h>
#include <Tessarin/Tessarin.h>
#include <Tessarin/integration/gtk/GLibMainQueue.h>

int main() {
    using namespace Tessarin;
    auto* const loop = g_main_loop_new(nullptr, FALSE);
    GLibMainQueue const mainQueue;

    auto const group = dispatch_group_create();
    for (int worker = 1; worker <= 3; ++worker)
        dispatch_group_async(group, dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), [worker, group] {
            for (int step = 1; step <= 3; ++step)
                dispatch_group_async(group, dispatch_get_main_queue(),
                                     [=] { print("worker " + std::to_string(worker) + ", step " + std::to_string(step)); });
        });
    dispatch_group_notify(group, dispatch_get_main_queue(), [loop] { g_main_loop_quit(loop); });

    g_main_loop_run(loop);
    g_main_loop_unref(loop);
}
