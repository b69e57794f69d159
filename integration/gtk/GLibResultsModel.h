#pragma once
#include "Tessarin/platform/objectgraph/live/LiveList.h"
#include "Tessarin/platform/objectgraph/live/LiveReplay.h"
#include <algorithm>
#include <gio/gio.h>
#include <unordered_map>

namespace Tessarin {

/// What a GListModel over a live list holds: a GObject for each record that a view has asked for, the same one as long as
/// somebody keeps it. Emits "changed" when the record shows something else.
class GLibResult {
public:
    static GType type() {
        static GType const registered =
            g_type_register_static_simple(G_TYPE_OBJECT, "TessarinResult", sizeof(GObjectClass), &GLibResult::initClass,
                                          sizeof(Instance), nullptr, GTypeFlags{});
        return registered;
    }
    /// The managed object of an item of such a model; null for any other GObject.
    static Ref<NSManagedObject> object(gpointer item) {
        return item && g_type_is_a(G_OBJECT_TYPE(item), type()) ? *static_cast<Instance*>(item)->object : nullptr;
    }
    /// A new item, which the caller owns.
    static GObject* make(Ref<NSManagedObject> object) {
        auto* const item = static_cast<Instance*>(g_object_new(type(), nullptr));
        item->object = new Ref<NSManagedObject>(std::move(object));
        return G_OBJECT(item);
    }
    static void tellChanged(GObject* item) { g_signal_emit_by_name(item, "changed"); }

private:
    struct Instance {
        GObject parent;
        Ref<NSManagedObject>* object;
    };
    static void initClass(gpointer type, gpointer) {
        static_cast<GObjectClass*>(type)->finalize = [](GObject* object) {
            delete reinterpret_cast<Instance*>(object)->object;
            static_cast<GObjectClass*>(g_type_class_peek(G_TYPE_OBJECT))->finalize(object);
        };
        g_signal_new("changed", G_TYPE_FROM_CLASS(type), G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr, G_TYPE_NONE, 0);
    }
};

/// A live list as a GListModel, for GTK's list views: one row after the other, whatever sections the list has. On the main thread,
/// over a list of a main-queue context, beside a `GLibMainQueue`. Each step of a change is one "items-changed", with the model as
/// it is at that moment; a row that shows something else keeps its item, which emits "changed".
///
///     GListModel* const model = glibResultsModel(books.list());              // g_object_unref lets it go
///     auto const book = GLibResult::object(gtk_list_item_get_item(row));     // in a factory's "bind"
class GLibResultsModel {
public:
    static GType type() {
        static GType const registered = [] {
            auto const made =
                g_type_register_static_simple(G_TYPE_OBJECT, "TessarinResultsModel", sizeof(GObjectClass),
                                              &GLibResultsModel::initClass, sizeof(Instance), nullptr, GTypeFlags{});
            GInterfaceInfo const list{&GLibResultsModel::initInterface, nullptr, nullptr};
            g_type_add_interface_static(made, G_TYPE_LIST_MODEL, &list);
            return made;
        }();
        return registered;
    }
    /// A new model, which the caller owns. Changes of more than `mostSteps` steps are told as one, of all rows in between.
    static GListModel* make(Ref<LiveList> list, std::size_t mostSteps = 100) {
        auto* const model = static_cast<Instance*>(g_object_new(type(), nullptr));
        model->inside = new Inside(G_LIST_MODEL(model), std::move(list), mostSteps);
        return G_LIST_MODEL(model);
    }

private:
    class Inside {
    public:
        Inside(GListModel* model, Ref<LiveList> list, std::size_t mostSteps)
            : model_(model), list_(std::move(list)), replay_(*list_), mostSteps_(mostSteps) {
            connection_ = list_->observe([this](LiveChanges const& changes) { follow(changes.steps()); });
        }
        ~Inside() {
            for (auto const& [object, item] : items_) g_object_weak_unref(item, &Inside::forget, this);
        }
        Inside(Inside const&) = delete;
        Inside& operator=(Inside const&) = delete;

        guint count() const { return static_cast<guint>(firstOf(replay_.sections())); }

        /// The item of a row of this moment, owned by the caller; null behind the last one, and for a row that is about to go.
        GObject* item(guint position) {
            std::size_t section = 0, row = position;
            while (section < replay_.sections() && row >= replay_.rows(section)) row -= replay_.rows(section++);
            if (section == replay_.sections()) return nullptr;
            auto const place = replay_.inTheEnd({section, row});
            // A row that goes with a later step has nothing left to show, but a model has no holes.
            if (!place) return GLibResult::make(nullptr);
            auto object = list_->object(place->section, place->row);
            auto& known = items_[object.get()];
            if (known) return G_OBJECT(g_object_ref(known));
            auto* const item = GLibResult::make(std::move(object));
            g_object_weak_ref(item, &Inside::forget, this);
            return known = item;
        }

    private:
        static void forget(gpointer self, GObject* item) {
            static_cast<Inside*>(self)->items_.erase(GLibResult::object(item).get());
        }
        std::size_t firstOf(std::size_t section) const {
            std::size_t first = 0;
            for (std::size_t at = 0; at < section; ++at) first += replay_.rows(at);
            return first;
        }

        void follow(std::span<LiveChange const> steps) {
            replay_.begin(steps);
            if (steps.size() > mostSteps_) {
                auto const before = count();
                replay_.end();
                g_list_model_items_changed(model_, 0, before, count());
            } else {
                for (auto const& step : steps) tell(step);
            }
        }

        void tell(LiveChange const& step) {
            auto const at = static_cast<guint>(step.section < replay_.sections() ? firstOf(step.section) + step.row : 0);
            auto const rows = static_cast<guint>(step.count);
            replay_.take();
            using Kind = LiveChange::Kind;
            switch (step.kind) {
            case Kind::InsertSection:
            case Kind::RemoveSection: return;
            case Kind::Insert: return g_list_model_items_changed(model_, at, 0, rows);
            case Kind::Remove: return g_list_model_items_changed(model_, at, rows, 0);
            case Kind::Move: return tellMove(at, static_cast<guint>(firstOf(step.toSection) + step.toRow));
            case Kind::Update:
                for (guint row = at; row < at + rows; ++row) {
                    auto* const changed = item(row);
                    GLibResult::tellChanged(changed);
                    g_object_unref(changed);
                }
            }
        }
        /// GListModel knows no moves: all rows between both places have changed.
        void tellMove(guint from, guint to) {
            auto const first = std::min(from, to), count = std::max(from, to) - first + 1;
            g_list_model_items_changed(model_, first, count, count);
        }

        GListModel* model_; // which owns this
        Ref<LiveList> list_;
        LiveReplay replay_;
        std::size_t mostSteps_;
        std::unordered_map<NSManagedObject*, GObject*> items_; // living ones, which keep their objects
        ScopedConnection connection_;
    };
    struct Instance {
        GObject parent;
        Inside* inside;
    };

    static Inside& insideOf(GListModel* model) { return *reinterpret_cast<Instance*>(model)->inside; }
    static void initClass(gpointer type, gpointer) {
        static_cast<GObjectClass*>(type)->finalize = [](GObject* object) {
            delete reinterpret_cast<Instance*>(object)->inside;
            static_cast<GObjectClass*>(g_type_class_peek(G_TYPE_OBJECT))->finalize(object);
        };
    }
    static void initInterface(gpointer interface, gpointer) {
        auto& list = *static_cast<GListModelInterface*>(interface);
        list.get_item_type = [](GListModel*) { return GLibResult::type(); };
        list.get_n_items = [](GListModel* model) { return insideOf(model).count(); };
        list.get_item = [](GListModel* model, guint at) -> gpointer { return insideOf(model).item(at); };
    }
};

inline GListModel* glibResultsModel(Ref<LiveList> list, std::size_t mostSteps = 100) {
    return GLibResultsModel::make(std::move(list), mostSteps);
}

} // namespace Tessarin
