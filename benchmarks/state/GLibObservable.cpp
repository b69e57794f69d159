#include "benchmarks/state/Peers.h"

#ifdef TESSARIN_HAS_GOBJECT
#include <glib-object.h>

namespace Tessarin::benchmarks {
namespace {

struct Object {
    GObject base;
    int value;
};
GParamSpec* valueProperty = nullptr;

void setProperty(GObject* object, guint, GValue const* value, GParamSpec*) {
    reinterpret_cast<Object*>(object)->value = g_value_get_int(value);
}
void startClass(gpointer type, gpointer) {
    auto* const objectClass = static_cast<GObjectClass*>(type);
    objectClass->set_property = setProperty;
    valueProperty = g_param_spec_int("value", nullptr, nullptr, G_MININT, G_MAXINT, 0, G_PARAM_WRITABLE);
    g_object_class_install_property(objectClass, 1, valueProperty);
}

/// A setter as one writes it: store, then notify by the property's own description.
class GLibObservable : public Observable {
public:
    GLibObservable() {
        static auto const type = g_type_register_static_simple(G_TYPE_OBJECT, "BenchmarkObservable", sizeof(GObjectClass),
                                                               startClass, sizeof(Object), nullptr, static_cast<GTypeFlags>(0));
        object_ = static_cast<Object*>(g_object_new(type, nullptr));
    }
    ~GLibObservable() override { g_object_unref(object_); }
    void set(int count) override {
        for (int i = 0; i < count; ++i) {
            if (object_->value == i) continue;
            object_->value = i;
            g_object_notify_by_pspec(&object_->base, valueProperty);
        }
    }

private:
    Object* object_;
};

} // namespace
std::unique_ptr<Observable> makeGLibObservable() { return std::make_unique<GLibObservable>(); }
} // namespace Tessarin::benchmarks
#else
std::unique_ptr<Tessarin::benchmarks::Observable> Tessarin::benchmarks::makeGLibObservable() { return nullptr; }
#endif
