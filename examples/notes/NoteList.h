#pragma once
#include "Notes.h"
#include <QLineEdit>
#include <QTreeView>
#include <Tessarin/integration/qt/QtResultsModel.h>
#include <functional>

namespace notes {

/// The notes of a notebook, or of all, and what a search among them finds; the latest first.
class NoteList : public QWidget {
public:
    NoteList(Tessarin::Ref<Tessarin::NSManagedObjectContext> context, std::function<void(Tessarin::Ref<Note>)> chosen);

    /// Null: of all notebooks.
    void showNotebook(Tessarin::Ref<Notebook> notebook);
    Tessarin::Ref<Note> current() const;
    void select(Note const& note);
    QTreeView& view() noexcept { return view_; }
    /// Ages that are shown grow.
    void showAges() { view_.viewport()->update(); }

private:
    Tessarin::FetchQuery<Note> query() const;
    void showFirst();
    void showAll();
    void find(QString const& words);
    void show(Tessarin::FetchQuery<Note> const& query);

    static constexpr std::size_t first = 200; // shown until somebody scrolls to their end, and what a search shows

    Tessarin::Ref<Tessarin::NSManagedObjectContext> const context_;
    std::function<void(Tessarin::Ref<Note>)> const chosen_;
    Tessarin::Ref<Notebook> notebook_;
    Tessarin::Ref<Tessarin::NSAsynchronousFetch> search_;
    std::unique_ptr<Tessarin::QtResultsModel> model_;
    bool isPart_ = false; // `first` of more
    QLineEdit words_;
    QTreeView view_;
};

} // namespace notes
