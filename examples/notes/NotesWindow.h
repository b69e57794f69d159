#pragma once
#include "Import.h"
#include "NoteEditor.h"
#include "NoteList.h"
#include <QListView>
#include <QMainWindow>
#include <QProgressBar>
#include <functional>

namespace notes {

/// Notebooks, the notes of one, and one of these. All windows of a store show the same context, and undo the same steps.
class NotesWindow : public QMainWindow {
public:
    /// `another` opens a second window.
    NotesWindow(Tessarin::Ref<Tessarin::ManagedObjectStore> store, std::function<void()> another);

private:
    void addActions(std::function<void()> another);
    QAction* add(QString const& text, QKeySequence const& keys, std::function<void()> run);
    void addNotebooks();
    void addNote();
    void addNotebook();
    void deleteNote();
    void import();
    void showPreferences();
    void usePreferences();
    void nameUndo();
    void change(char const* actionName, std::function<void()> const& change);
    void save();

    Tessarin::Ref<Tessarin::ManagedObjectStore> const store_;
    Tessarin::Ref<Tessarin::NSManagedObjectContext> const context_;
    Tessarin::Ref<Tessarin::UndoManager> const undo_;
    Tessarin::ScopedConnection undoNames_;
    Tessarin::Ref<Tessarin::MainQueueTimer> ages_;
    Tessarin::Ref<Tessarin::NSObject> preferences_; // told of changes
    Tessarin::Ref<Notebook> notebook_;
    Tessarin::Ref<Import> import_;
    std::unique_ptr<Tessarin::QtResultsModel> notebookModel_;
    QListView notebooks_;
    NoteList list_;
    NoteEditor editor_;
    QProgressBar progress_;
    QAction *undoAction_ = nullptr, *redoAction_ = nullptr, *importAction_ = nullptr;
};

} // namespace notes
