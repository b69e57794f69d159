#include "NotesWindow.h"

#include <QInputDialog>
#include <QMenuBar>
#include <QSplitter>
#include <QStatusBar>

using namespace Tessarin;

namespace notes {
namespace {

DefaultsKey<std::int64_t> const fontSize("fontSize");
constexpr int importedNotes = 50'000;

} // namespace

NotesWindow::NotesWindow(Ref<ManagedObjectStore> store, std::function<void()> another)
    : store_(std::move(store)),
      context_(store_->mainThreadContext()),
      undo_(context_->undoManager()),
      list_(context_, [this](Ref<Note> note) { editor_.show(std::move(note)); }) {
    setWindowTitle("Notes");
    setAttribute(Qt::WA_DeleteOnClose);
    resize(1000, 600);
    auto* const panes = new QSplitter(this);
    for (QWidget* const each : std::initializer_list<QWidget*>{&notebooks_, &list_, &editor_}) panes->addWidget(each);
    panes->setSizes({160, 360, 480});
    setCentralWidget(panes);
    statusBar()->addPermanentWidget(&progress_);
    progress_.setRange(0, importedNotes);
    progress_.hide();
    addNotebooks();
    addActions(std::move(another));
    undo_->setLimit(200);
    undoNames_ = undo_->observe([this] { nameUndo(); });
    nameUndo();
    ages_ = MainQueueTimer::every(30, [this] { list_.showAges(), editor_.showAge(); }, {.tolerance = 5});
    preferences_ = NSNotificationCenter::defaultCenter()->addObserverForName(NSUserDefaultsDidChangeNotification, nullptr,
                                                                             nullptr, [this](auto const&) { usePreferences(); });
    usePreferences();
    connect(this, &QObject::destroyed, [ages = ages_, preferences = preferences_] {
        ages->invalidate();
        NSNotificationCenter::defaultCenter()->removeObserver(*preferences);
    });
}

void NotesWindow::addNotebooks() {
    notebookModel_ =
        std::make_unique<QtResultsModel>(LiveResults<Notebook>(context_->fetch<Notebook>().sortedBy(Notebook::name)).list());
    notebookModel_->addColumn("Notebook", "name", QtResultsModel::Editable);
    notebooks_.setObjectName("notebooks");
    notebooks_.setModel(notebookModel_.get());
    connect(notebooks_.selectionModel(), &QItemSelectionModel::currentRowChanged, this, [this](QModelIndex const& now) {
        notebook_ = std::static_pointer_cast<Notebook>(notebookModel_->object(now));
        list_.showNotebook(notebook_);
    });
}

QAction* NotesWindow::add(QString const& text, QKeySequence const& keys, std::function<void()> run) {
    auto* const action = menuBar()->actions().back()->menu()->addAction(text);
    action->setShortcut(keys);
    connect(action, &QAction::triggered, this, std::move(run));
    return action;
}

void NotesWindow::addActions(std::function<void()> another) {
    menuBar()->addMenu("&File");
    add("New Note", QKeySequence::New, [this] { addNote(); });
    add("New Notebook…", QKeySequence("Ctrl+Shift+N"), [this] { addNotebook(); });
    add("All Notebooks", QKeySequence("Ctrl+0"), [this] { notebooks_.setCurrentIndex({}); });
    add("New Window", QKeySequence("Ctrl+T"), std::move(another));
    importAction_ = add("Import", QKeySequence("Ctrl+I"), [this] { import_ ? import_->cancel() : import(); });
    add("Preferences…", QKeySequence("Ctrl+,"), [this] { showPreferences(); });
    add("Close", QKeySequence::Close, [this] { close(); });
    menuBar()->addMenu("&Edit");
    undoAction_ = add("Undo", QKeySequence::Undo, [this] { editor_.commit(), undo_->undo(), save(); });
    redoAction_ = add("Redo", QKeySequence("Ctrl+Shift+Z"), [this] { editor_.commit(), undo_->redo(), save(); });
    add("Delete Note", QKeySequence("Ctrl+D"), [this] { deleteNote(); });
    add("Find", QKeySequence::Find, [this] { list_.findChild<QLineEdit*>("search")->setFocus(); });
}

void NotesWindow::nameUndo() {
    undoAction_->setEnabled(undo_->canUndo());
    redoAction_->setEnabled(undo_->canRedo());
    undoAction_->setText(QString::fromStdString("Undo " + undo_->undoActionName()));
    redoAction_->setText(QString::fromStdString("Redo " + undo_->redoActionName()));
}

void NotesWindow::change(char const* actionName, std::function<void()> const& change) {
    editor_.commit();
    undo_->beginGroup();
    change();
    undo_->setActionName(actionName);
    undo_->endGroup();
    save();
}

void NotesWindow::save() {
    Ref<NSError> error;
    if (!context_->save(error)) statusBar()->showMessage(QString::fromStdString(error->localizedDescription()));
}

void NotesWindow::addNote() {
    Ref<Note> note;
    change("New Note", [&] { note = notes::addNote(*context_, "New note", "", notebook_); });
    context_->processPendingChanges(); // the list has it then
    list_.select(*note);
    editor_.focusTitle();
}

void NotesWindow::addNotebook() {
    auto const name = QInputDialog::getText(this, "New Notebook", "Name");
    if (!name.isEmpty()) change("New Notebook", [&] { notebookNamed(*context_, name.toStdString()); });
}

void NotesWindow::deleteNote() {
    if (auto const note = editor_.note()) change("Delete Note", [&] { context_->deleteObject(*note); });
}

void NotesWindow::import() {
    progress_.setValue(0);
    progress_.show();
    importAction_->setText("Cancel Import");
    QPointer<NotesWindow> const window(this); // which may be closed meanwhile
    import_ = Import::start(*store_, importedNotes,
                            {.progress =
                                 [window](std::size_t done) {
                                     if (window) window->progress_.setValue(int(done));
                                 },
                             .ended =
                                 [window](bool hasCome) {
                                     if (!window) return;
                                     window->import_ = nullptr;
                                     window->progress_.hide();
                                     window->importAction_->setText("Import");
                                     window->statusBar()->showMessage(hasCome ? "Imported" : "Cancelled");
                                 }});
}

void NotesWindow::showPreferences() {
    auto& defaults = *NSUserDefaults::standardUserDefaults();
    bool isChosen = false;
    auto const size = QInputDialog::getInt(this, "Preferences", "Size of letters", int(defaults[fontSize]), 6, 72, 1, &isChosen);
    if (isChosen) defaults[fontSize] = size;
}

void NotesWindow::usePreferences() {
    auto font = editor_.font();
    if (auto const size = std::int64_t(NSUserDefaults::standardUserDefaults()->operator[](fontSize)))
        font.setPointSize(int(size));
    editor_.setFont(font);
}

} // namespace notes
