#include "benchmarks/window/TableWindow.h"

#include "Tessarin/platform/runtime/Fatal.h"
#include "examples/notes/Generator.h"

#include <QHeaderView>
#include <QSqlError>
#include <QSqlQuery>
#include <QVBoxLayout>

namespace Tessarin::benchmarks {
namespace {

void run(QSqlQuery& query) {
    if (!query.exec()) fatal(query.lastError().text().toStdString());
}
void run(QSqlDatabase& database, char const* statement) {
    QSqlQuery query(database);
    if (!query.exec(statement)) fatal(query.lastError().text().toStdString());
}

} // namespace

TableWindow::TableWindow(QString const& file) : database_(QSqlDatabase::addDatabase("QSQLITE", file)) {
    database_.setDatabaseName(file);
    if (!database_.open()) fatal(database_.lastError().text().toStdString());
    run(database_, "PRAGMA journal_mode = WAL");
    run(database_, "CREATE TABLE IF NOT EXISTS Note (id INTEGER PRIMARY KEY, title TEXT, text TEXT, edited REAL)");
    run(database_, "CREATE INDEX IF NOT EXISTS edited ON Note (edited)");
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(&words_);
    layout->addWidget(&view_);
    resize(400, 600);
    model_ = std::make_unique<QSqlTableModel>(nullptr, database_);
    model_->setTable("Note");
    model_->setSort(3, Qt::DescendingOrder);
    model_->select();
    view_.setModel(model_.get());
    view_.setUniformRowHeights(true);
    for (int const column : {0, 2}) view_.hideColumn(column);
    connect(&words_, &QLineEdit::textChanged, this, [this](QString const& words) { find(words); });
}

TableWindow::~TableWindow() {
    view_.setModel(nullptr);
    model_.reset();
    auto const name = database_.connectionName();
    database_ = QSqlDatabase();
    QSqlDatabase::removeDatabase(name);
}

void TableWindow::find(QString const& words) {
    QStringList conditions;
    for (auto word : words.split(' ', Qt::SkipEmptyParts)) {
        word.replace('\'', "''");
        conditions << QString("(title LIKE '%%1%' OR text LIKE '%%1%')").arg(word);
    }
    model_->setFilter(conditions.join(" AND "));
    model_->select();
}

void TableWindow::import(std::size_t count) {
    database_.transaction();
    QSqlQuery query(database_);
    query.prepare("INSERT INTO Note (title, text, edited) VALUES (?, ?, ?)");
    for (std::size_t at = 0; at < count; ++at) {
        auto const [title, text] = notes::generated(at);
        query.bindValue(0, QString::fromStdString(title));
        query.bindValue(1, QString::fromStdString(text));
        query.bindValue(2, -60.0 * static_cast<double>(at));
        run(query);
    }
    database_.commit();
    model_->select();
}

} // namespace Tessarin::benchmarks
