#pragma once
#include "Tessarin/platform/queues/DispatchMain.h"
#include <glib-unix.h>

namespace Tessarin {

/// Has a GLib main loop run the main queue's items, from construction to destruction: in GTK's loop, in `g_main_loop_run`, and in
/// nested loops. The loop must be run by the process's first thread. Any thread may post, as ever; what is posted before or after
/// this object's time waits for the next one.
///
///     GLibMainQueue const mainQueue;
///     return g_application_run(application, argc, argv);
class GLibMainQueue {
public:
    /// As urgent as GTK's painting: input goes first, and beside a flood of posts the windows are still painted.
    static constexpr int defaultPriority = G_PRIORITY_HIGH_IDLE + 20;

    /// A null context stands for GLib's default one.
    explicit GLibMainQueue(GMainContext* context = nullptr, int priority = defaultPriority)
        : source_(g_unix_fd_source_new(mainQueueDescriptor(), G_IO_IN)) {
        GUnixFDSourceFunc const drain = [](gint, GIOCondition, gpointer) -> gboolean {
            drainMainQueue();
            return G_SOURCE_CONTINUE;
        };
        // GLib keeps callbacks of every shape as the one of no arguments, and casts them back.
        g_source_set_callback(source_, reinterpret_cast<GSourceFunc>(reinterpret_cast<void (*)()>(drain)), nullptr, nullptr);
        g_source_set_priority(source_, priority);
        g_source_set_static_name(source_, "Tessarin's main queue");
        g_source_attach(source_, context);
    }
    GLibMainQueue(GLibMainQueue const&) = delete;
    GLibMainQueue& operator=(GLibMainQueue const&) = delete;
    ~GLibMainQueue() {
        g_source_destroy(source_);
        g_source_unref(source_);
    }

private:
    GSource* const source_;
};

} // namespace Tessarin
