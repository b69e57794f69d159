#include "benchmarks/notifications/Peers.h"

#ifdef TESSARIN_HAS_GOBJECT
#include <glib-object.h>

namespace Tessarin::benchmarks {
namespace {

guint firedSignal() {
    static guint const signal = [] {
        auto const type = g_type_register_static_simple(G_TYPE_OBJECT, "BenchmarkChannel", sizeof(GObjectClass), nullptr,
                                                        sizeof(GObject), nullptr, static_cast<GTypeFlags>(0));
        g_type_class_unref(g_type_class_ref(type));
        return g_signal_new("fired", type, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr, G_TYPE_NONE, 0);
    }();
    return signal;
}

class GLibChannel : public Channel {
public:
    GLibChannel() {
        signal_ = firedSignal();
        object_ = static_cast<GObject*>(g_object_new(g_type_from_name("BenchmarkChannel"), nullptr));
    }
    ~GLibChannel() override { g_object_unref(object_); }
    void add(long& heard) override {
        auto* const count = +[](GObject*, gpointer data) { ++*static_cast<long*>(data); };
        g_signal_connect(object_, "fired", G_CALLBACK(count), &heard);
    }
    void post() override { g_signal_emit(object_, signal_, 0); }

private:
    guint signal_;
    GObject* object_;
};

} // namespace
std::unique_ptr<Channel> makeGLibChannel() { return std::make_unique<GLibChannel>(); }
} // namespace Tessarin::benchmarks
#else
std::unique_ptr<Tessarin::benchmarks::Channel> Tessarin::benchmarks::makeGLibChannel() { return nullptr; }
#endif
