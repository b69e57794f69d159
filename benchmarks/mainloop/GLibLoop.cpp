#include "benchmarks/mainloop/Loops.h"

#ifdef TESSARIN_HAS_GLIB
#include "integration/gtk/GLibMainQueue.h"

namespace Tessarin::benchmarks {
namespace {

class GLibLoop : public Loop {
public:
    ~GLibLoop() override { g_main_loop_unref(loop_); }
    void run() override { g_main_loop_run(loop_); }
    void quit() override { g_main_loop_quit(loop_); }
    void post(Call call, void* argument) override {
        struct Work {
            Call call;
            void* argument;
        };
        g_idle_add_full(
            GLibMainQueue::defaultPriority,
            [](gpointer data) -> gboolean {
                auto const& work = *static_cast<Work const*>(data);
                work.call(work.argument);
                return G_SOURCE_REMOVE;
            },
            new Work{call, argument}, [](gpointer data) { delete static_cast<Work*>(data); });
    }

private:
    GLibMainQueue mainQueue_;
    GMainLoop* const loop_ = g_main_loop_new(nullptr, FALSE);
};

} // namespace
std::unique_ptr<Loop> makeGLibLoop() { return std::make_unique<GLibLoop>(); }
} // namespace Tessarin::benchmarks
#else
std::unique_ptr<Tessarin::benchmarks::Loop> Tessarin::benchmarks::makeGLibLoop() { return nullptr; }
#endif
