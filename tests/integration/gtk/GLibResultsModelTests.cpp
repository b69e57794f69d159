// Live lists as GListModels: a listener applies "items-changed" to a copy, and asks for what came at once.
#include "integration/gtk/GLibResultsModel.h"

#include "tests/integration/Shelves.h"

namespace Tessarin::tests {
namespace {

std::string titleOf(GObject* item) {
    auto const object = GLibResult::object(item);
    return object ? std::string(object->valueForKey("title").text()) : "";
}

/// What GTK keeps of a model.
class Copy {
public:
    explicit Copy(GListModel* model) : model_(model) {
        g_signal_connect(model, "items-changed", G_CALLBACK(&Copy::follow), this);
        take(0, g_list_model_get_n_items(model));
    }
    ~Copy() {
        for (auto* item : items_) g_object_unref(item);
    }
    Copy(Copy const&) = delete;
    Copy& operator=(Copy const&) = delete;

    std::vector<GObject*> const& items() const { return items_; }
    int changes = 0;

private:
    static void follow(GListModel*, guint at, guint removed, guint added, Copy* self) {
        ASSERT_LE(at + removed, self->items_.size());
        auto const first = self->items_.begin() + at;
        for (auto item = first; item != first + removed; ++item) g_object_unref(*item);
        self->items_.erase(first, first + removed);
        self->take(at, added);
        EXPECT_EQ(g_list_model_get_n_items(self->model_), self->items_.size());
    }
    void take(guint at, guint count) {
        for (auto row = at; row < at + count; ++row) {
            auto* const item = G_OBJECT(g_list_model_get_item(model_, row));
            g_signal_connect(item, "changed", G_CALLBACK(+[](GObject*, Copy* self) { ++self->changes; }), this);
            items_.insert(items_.begin() + row, item);
        }
    }

    GListModel* model_;
    std::vector<GObject*> items_;
};

} // namespace

TEST(GLibResultsModel, EachSignalTellsTheModelOfThatMoment) {
    for (std::size_t const mostSteps : {2, 100}) {
        Shelves shelves;
        std::mt19937 random(7);
        auto const list = shelves.list({.sectionKeyPath = "year"});
        auto* const model = glibResultsModel(list, mostSteps);
        {
            Copy copy(model);
            for (int step = 0; step < 200; ++step) {
                shelves.changeAtRandom(random);
                ASSERT_EQ(copy.items().size(), list->size()) << step;
                for (std::size_t row = 0; row < list->size(); ++row)
                    ASSERT_EQ(GLibResult::object(copy.items()[row]), (*list)[row]) << step << ", row " << row;
            }
            g_signal_handlers_disconnect_by_data(model, &copy);
        }
        g_object_unref(model);
        shelves.changeAtRandom(random); // nobody is told any more
    }
}

TEST(GLibResultsModel, ARowThatShowsSomethingElseKeepsItsItem) {
    Shelves const shelves;
    auto const emma = shelves.add("Emma");
    shelves.turnEnds();
    auto* const model = glibResultsModel(shelves.list());
    {
        Copy copy(model);
        auto* const item = copy.items().at(0);
        emma->setValueForKey(Value(1815), "year");
        shelves.turnEnds();
        EXPECT_EQ(copy.changes, 1);
        auto* const again = G_OBJECT(g_list_model_get_item(model, 0));
        EXPECT_EQ(again, item);
        EXPECT_EQ(titleOf(again), "Emma");
        g_object_unref(again);
        g_signal_handlers_disconnect_by_data(model, &copy);
    }
    g_object_unref(model);
}

} // namespace Tessarin::tests
