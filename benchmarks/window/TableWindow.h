#pragma once
#include <QLineEdit>
#include <QSqlDatabase>
#include <QSqlTableModel>
#include <QTreeView>

namespace Tessarin::benchmarks {

/// The same list over a QSqlTableModel, as its documentation shows it: sorted and filtered by SQL, filled as it is scrolled.
class TableWindow : public QWidget {
public:
    explicit TableWindow(QString const& file);
    ~TableWindow() override;

    /// Inserts generated notes in one transaction, and shows them.
    void import(std::size_t count);
    QLineEdit& words() noexcept { return words_; }
    QTreeView& view() noexcept { return view_; }

private:
    void find(QString const& words);

    QSqlDatabase database_;
    std::unique_ptr<QSqlTableModel> model_;
    QLineEdit words_;
    QTreeView view_;
};

} // namespace Tessarin::benchmarks
