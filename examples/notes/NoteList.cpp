#include "NoteList.h"

#include <QHeaderView>
#include <QScrollBar>
#include <QTimer>
#include <QVBoxLayout>

using namespace Tessarin;

namespace notes {

NoteList::NoteList(Ref<NSManagedObjectContext> context, std::function<void(Ref<Note>)> chosen)
    : context_(std::move(context)), chosen_(std::move(chosen)) {
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(&words_);
    layout->addWidget(&view_);
    words_.setObjectName("search");
    words_.setPlaceholderText("Search");
    words_.setClearButtonEnabled(true);
    view_.setObjectName("notes");
    view_.setRootIsDecorated(false);
    view_.setUniformRowHeights(true);
    connect(&words_, &QLineEdit::textChanged, this, [this](QString const& words) { find(words); });
    connect(view_.verticalScrollBar(), &QScrollBar::valueChanged, this, [this](int value) {
        bool const isAtEnd = value == view_.verticalScrollBar()->maximum() && isPart_;
        if (isAtEnd) QTimer::singleShot(0, this, [this] { showAll(); }); // after what moves the bar
    });
    showFirst();
}

void NoteList::showNotebook(Ref<Notebook> notebook) {
    notebook_ = std::move(notebook);
    find(words_.text());
}

FetchQuery<Note> NoteList::query() const {
    auto all = context_->fetch<Note>().sortedBy(Note::edited.descending());
    return notebook_ ? std::move(all).where(Note::notebook == notebook_) : std::move(all);
}

void NoteList::showFirst() {
    show(query().limit(first));
    isPart_ = true;
}

void NoteList::showAll() {
    if (!std::exchange(isPart_, false)) return;
    auto const top = view_.verticalScrollBar()->value();
    show(query());
    view_.verticalScrollBar()->setValue(top);
}

/// The search itself is done beside this thread; each key gives the one before it up.
void NoteList::find(QString const& words) {
    if (search_) search_->cancel();
    search_ = nullptr;
    isPart_ = false;
    if (words.trimmed().isEmpty()) return showFirst();
    search_ = query().search(words.toStdString()).limit(first).async([this](FetchedList<Note> found, Ref<NSError> const& error) {
        if (error) return; // given up
        std::vector<Ref<NSManagedObject>> notes(found.begin(), found.end());
        show(context_->fetch<Note>()
                 .where(NSPredicate::predicateWithFormat("SELF IN %@", Value(List(notes.begin(), notes.end()))))
                 .sortedBy(Note::edited.descending()));
    });
}

void NoteList::show(FetchQuery<Note> const& query) {
    auto const chosen = current();
    auto model = std::make_unique<QtResultsModel>(LiveResults<Note>(query).list());
    model->addColumn("Title", "title");
    model->addColumn("Edited", [](NSManagedObject& object, int role) {
        return role == Qt::DisplayRole ? QVariant(QString::fromStdString(age(static_cast<Note&>(object)))) : QVariant();
    });
    view_.setModel(model.get());
    model_ = std::move(model);
    view_.header()->setSectionResizeMode(0, QHeaderView::Stretch);
    connect(view_.selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            [this](QModelIndex const& now) { chosen_(std::static_pointer_cast<Note>(model_->object(now))); });
    if (chosen) select(*chosen);
}

Ref<Note> NoteList::current() const {
    return model_ ? std::static_pointer_cast<Note>(model_->object(view_.currentIndex())) : nullptr;
}

void NoteList::select(Note const& note) {
    if (auto const index = model_->indexOf(note); index.isValid()) view_.setCurrentIndex(index);
}

} // namespace notes
