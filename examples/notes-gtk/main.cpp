// The same notes in GTK: a list that follows them, and a search in it. notes-gtk [--folder PATH]
#include "../notes/Notes.h"

#include <gtk/gtk.h>
#include <Tessarin/integration/gtk/GLibMainQueue.h>
#include <Tessarin/integration/gtk/GLibResultsModel.h>

using namespace Tessarin;
using namespace notes;
namespace {

constexpr std::size_t mostFound = 200;

/// A window lives as long as its widget.
class Window {
public:
    Window(GtkApplication* application, Ref<ManagedObjectStore> store)
        : store_(std::move(store)), context_(store_->mainThreadContext()), undo_(context_->undoManager()) {
        window_ = GTK_WINDOW(gtk_application_window_new(application));
        gtk_window_set_title(window_, "Notes");
        gtk_window_set_default_size(window_, 800, 500);
        auto* const panes = gtk_paned_new(GTK_ORIENTATION_HORIZONTAL);
        gtk_paned_set_start_child(GTK_PANED(panes), leftPane());
        gtk_paned_set_end_child(GTK_PANED(panes), textPane());
        gtk_paned_set_position(GTK_PANED(panes), 320);
        gtk_window_set_child(window_, panes);
        addKeys();
        g_object_set_data_full(G_OBJECT(window_), "window", this, [](gpointer window) { delete static_cast<Window*>(window); });
        find("");
        gtk_window_present(window_);
    }

private:
    GtkWidget* leftPane() {
        auto* const box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
        words_ = gtk_search_entry_new();
        gtk_box_append(GTK_BOX(box), words_);
        g_signal_connect_swapped(words_, "changed",
                                 G_CALLBACK(+[](Window* self) { self->find(gtk_editable_get_text(GTK_EDITABLE(self->words_))); }),
                                 this);
        auto* const factory = gtk_signal_list_item_factory_new();
        g_signal_connect(factory, "setup", G_CALLBACK(+[](GtkListItemFactory*, GtkListItem* row) {
                             auto* const label = gtk_label_new(nullptr);
                             gtk_label_set_xalign(GTK_LABEL(label), 0);
                             gtk_list_item_set_child(row, label);
                         }),
                         nullptr);
        g_signal_connect(factory, "bind", G_CALLBACK(&Window::bind), nullptr);
        g_signal_connect(factory, "unbind", G_CALLBACK(&Window::unbind), nullptr);
        selection_ = gtk_single_selection_new(nullptr);
        gtk_single_selection_set_autoselect(selection_, FALSE);
        gtk_single_selection_set_can_unselect(selection_, TRUE);
        g_signal_connect_swapped(selection_, "notify::selected-item", G_CALLBACK(+[](Window* self) { self->showChosen(); }),
                                 this);
        auto* const list = gtk_list_view_new(GTK_SELECTION_MODEL(selection_), factory);
        auto* const scrolled = gtk_scrolled_window_new();
        gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(scrolled), list);
        gtk_widget_set_vexpand(scrolled, TRUE);
        gtk_box_append(GTK_BOX(box), scrolled);
        return box;
    }
    GtkWidget* textPane() {
        auto* const text = gtk_text_view_new();
        gtk_text_view_set_wrap_mode(GTK_TEXT_VIEW(text), GTK_WRAP_WORD);
        text_ = gtk_text_view_get_buffer(GTK_TEXT_VIEW(text));
        gtk_text_buffer_set_enable_undo(text_, FALSE); // the window's undo knows more
        auto* const leaving = gtk_event_controller_focus_new();
        g_signal_connect_swapped(leaving, "leave", G_CALLBACK(+[](Window* self) { self->commit(); }), this);
        gtk_widget_add_controller(text, leaving);
        return text;
    }
    void addKeys() {
        auto* const keys = gtk_event_controller_key_new();
        gtk_event_controller_set_propagation_phase(keys, GTK_PHASE_CAPTURE);
        g_signal_connect(keys, "key-pressed",
                         G_CALLBACK(+[](GtkEventController*, guint key, guint, GdkModifierType held, Window* self) -> gboolean {
                             return (held & GDK_CONTROL_MASK) != 0 && self->isTaken(gdk_keyval_to_lower(key), held);
                         }),
                         this);
        gtk_widget_add_controller(GTK_WIDGET(window_), keys);
    }
    bool isTaken(guint key, GdkModifierType held) {
        if (key != GDK_KEY_z && key != GDK_KEY_n && key != GDK_KEY_d) return false;
        commit();
        if (key == GDK_KEY_z) (held & GDK_SHIFT_MASK) != 0 ? undo_->redo() : undo_->undo();
        if (key == GDK_KEY_n) addNote(*context_, "New note", "");
        if (key == GDK_KEY_d && note_) context_->deleteObject(*note_);
        save();
        return true;
    }

    /// Without words the whole list; else what a search finds, which is asked for beside this thread.
    void find(std::string const& words) {
        if (search_) search_->cancel();
        search_ = nullptr;
        auto const all = context_->fetch<Note>().sortedBy(Note::edited.descending());
        if (words.empty()) return show(all);
        search_ = all.search(words).limit(mostFound).async([this](FetchedList<Note> found, Ref<NSError> const& error) {
            if (error) return; // given up
            List notes(found.begin(), found.end());
            show(context_->fetch<Note>()
                     .where(NSPredicate::predicateWithFormat("SELF IN %@", Value(std::move(notes))))
                     .sortedBy(Note::edited.descending()));
        });
    }
    void show(FetchQuery<Note> const& query) {
        auto* const model = glibResultsModel(LiveResults<Note>(query).list());
        gtk_single_selection_set_model(selection_, model);
        g_object_unref(model);
    }
    void showChosen() {
        commit();
        note_ = std::static_pointer_cast<Note>(GLibResult::object(gtk_single_selection_get_selected_item(selection_)));
        connection_ =
            note_ ? note_->observe(Note::text, [this](std::string const&, std::string const&) { read(); }) : ScopedConnection();
        read();
    }
    void read() {
        bool const isThere = note_ && !note_->isDeleted();
        shown_ = isThere ? note_->get(Note::text) : std::string();
        gtk_window_set_title(window_, isThere ? note_->get(Note::title).c_str() : "Notes");
        if (shown_ != typed()) gtk_text_buffer_set_text(text_, shown_.c_str(), static_cast<int>(shown_.size()));
    }
    std::string typed() const {
        GtkTextIter begin, end;
        gtk_text_buffer_get_bounds(text_, &begin, &end);
        auto* const text = gtk_text_buffer_get_text(text_, &begin, &end, TRUE);
        std::string const copy(text);
        g_free(text);
        return copy;
    }
    /// What the user typed, and not what the note has meanwhile become by an undo or elsewhere.
    void commit() {
        if (!note_ || note_->isDeleted() || shown_ == typed()) return;
        note_->set(Note::text, shown_ = typed());
        note_->set(Note::edited, NSDate::now());
        undo_->setActionName("Typing");
        save();
    }
    void save() {
        Ref<NSError> error;
        if (!context_->save(error)) gtk_window_set_title(window_, error->localizedDescription().c_str());
    }

    static void name(gpointer item, GtkLabel* label) {
        if (auto const note = std::static_pointer_cast<Note>(GLibResult::object(item)); note && !note->isDeleted())
            gtk_label_set_text(label, (note->get(Note::title) + " · " + age(*note)).c_str());
    }
    static void bind(GtkListItemFactory*, GtkListItem* row) {
        auto* const label = GTK_LABEL(gtk_list_item_get_child(row));
        auto* const item = gtk_list_item_get_item(row);
        name(item, label);
        auto const signal = g_signal_connect(item, "changed", G_CALLBACK(&Window::name), label);
        g_object_set_data(G_OBJECT(row), "signal", GSIZE_TO_POINTER(signal));
    }
    static void unbind(GtkListItemFactory*, GtkListItem* row) {
        g_signal_handler_disconnect(gtk_list_item_get_item(row), GPOINTER_TO_SIZE(g_object_get_data(G_OBJECT(row), "signal")));
    }

    Ref<ManagedObjectStore> const store_;
    Ref<NSManagedObjectContext> const context_;
    Ref<UndoManager> const undo_;
    GtkWindow* window_ = nullptr;
    GtkWidget* words_ = nullptr;
    GtkSingleSelection* selection_ = nullptr;
    GtkTextBuffer* text_ = nullptr;
    Ref<NSAsynchronousFetch> search_;
    Ref<Note> note_;
    std::string shown_;
    ScopedConnection connection_;
};

} // namespace

int main(int argc, char** argv) {
    auto const folder = folderFrom({argv, argv + argc});
    auto* const application = gtk_application_new("org.tessarin.notes.gtk", G_APPLICATION_NON_UNIQUE);
    GLibMainQueue const mainQueue;
    auto const activate = +[](GtkApplication* opened, std::optional<std::string> const* place) {
        g_application_hold(G_APPLICATION(opened)); // until its window stands
        ManagedObjectStore::open(storeOptions(*place), [opened](auto const& store, Ref<NSError> const& error) {
            store ? void(new Window(opened, store)) : g_printerr("notes-gtk: %s\n", error->localizedDescription().c_str());
            g_application_release(G_APPLICATION(opened));
        });
    };
    g_signal_connect(application, "activate", G_CALLBACK(activate), const_cast<std::optional<std::string>*>(&folder));
    auto const status = g_application_run(G_APPLICATION(application), 1, argv);
    g_object_unref(application);
    return status;
}
