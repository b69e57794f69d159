#include <glib.h>
// After the toolkit's header on purpose: its macros must not harm the library's.
#include "Tessarin/Tessarin.h"
#include "integration/gtk/GLibMainQueue.h"
#include "tests/integration/Loop.h"

#include <functional>
#include <vector>

namespace Tessarin::tests {
namespace {

int waitCount = 0;
gint countedPoll(GPollFD* files, guint count, gint timeout) {
    if (timeout != 0) ++waitCount;
    return g_poll(files, count, timeout);
}

class GLibLoop : public Loop {
public:
    GLibLoop() {
        waitCount = 0;
        g_main_context_set_poll_func(nullptr, countedPoll);
    }
    void run() override {
        loops_.push_back(g_main_loop_new(nullptr, FALSE));
        g_main_loop_run(loops_.back());
        g_main_loop_unref(loops_.back());
        loops_.pop_back();
    }
    void quit() override { g_main_loop_quit(loops_.back()); }
    void callAfter(int milliseconds, std::function<void()> work) override {
        g_timeout_add_full(G_PRIORITY_DEFAULT, static_cast<guint>(milliseconds), call, new std::function(std::move(work)),
                           destroy);
    }
    void callWhenIdle(std::function<void()> work) override {
        g_idle_add_full(GLibMainQueue::defaultPriority, call, new std::function(std::move(work)), destroy);
    }
    int waits() const override { return waitCount; }

private:
    static gboolean call(gpointer work) {
        (*static_cast<std::function<void()>*>(work))();
        return G_SOURCE_REMOVE;
    }
    static void destroy(gpointer work) { delete static_cast<std::function<void()>*>(work); }

    GLibMainQueue mainQueue_;
    std::vector<GMainLoop*> loops_;
};

} // namespace

std::unique_ptr<Loop> makeLoop() { return std::make_unique<GLibLoop>(); }

} // namespace Tessarin::tests
