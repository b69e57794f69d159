// Qt's SQL module with its SQLite driver: the same SQL, texts as the UTF-16 that a Qt application works with.
#include "benchmarks/store/SQLContender.h"

#ifdef TESSARIN_HAS_QTSQL
#include <QtCore/QCoreApplication>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>

namespace Tessarin::benchmarks {
namespace {

[[noreturn]] void fail(QSqlError const& error) { throw std::runtime_error(error.text().toStdString()); }

/// A text that stays as it is; all the workload's characters are ASCII.
struct QtText {
    QString characters;
    std::size_t size() const { return static_cast<std::size_t>(characters.size()); }
    unsigned char back() const { return static_cast<unsigned char>(characters.back().toLatin1()); }
    operator std::string() const { return characters.toStdString(); }
};

class QtStatement {
public:
    using KeptText = QtText;

    QtStatement(QSqlDatabase const& database, char const* sql) : query_(database) {
        query_.setForwardOnly(true);
        if (!query_.prepare(QString::fromLatin1(sql))) fail(query_.lastError());
    }

    void bind(int at, std::string_view text) {
        query_.bindValue(at - 1, QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())));
    }
    void bind(int at, std::int64_t value) { query_.bindValue(at - 1, qlonglong{value}); }
    void bind(int at, double value) { query_.bindValue(at - 1, value); }

    bool step() {
        if (!isRunning_) run();
        isRunning_ = true;
        return query_.next();
    }
    void reset() {
        query_.finish();
        isRunning_ = false;
    }
    void run() {
        if (!query_.exec()) fail(query_.lastError());
    }

    QtText text(int column) { return {query_.value(column).toString()}; }
    std::int64_t integer(int column) { return query_.value(column).toLongLong(); }
    double real(int column) { return query_.value(column).toDouble(); }
    std::int64_t lastKey() const { return query_.lastInsertId().toLongLong(); }

private:
    QSqlQuery query_;
    bool isRunning_ = false;
};

class QtDatabase {
public:
    QtDatabase(std::string const& file, Synchronous synchronous) : database_(QSqlDatabase::addDatabase("QSQLITE", connection)) {
        database_.setDatabaseName(QString::fromStdString(file));
        if (!database_.open()) fail(database_.lastError());
        execute("PRAGMA journal_mode = WAL");
        execute(synchronous == Synchronous::Full ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
        execute("PRAGMA cache_size = -8192");
    }
    ~QtDatabase() {
        database_ = {};
        QSqlDatabase::removeDatabase(connection);
    }
    QtDatabase(QtDatabase const&) = delete;

    QtStatement prepare(char const* sql) { return {database_, sql}; }
    void execute(char const* sql) {
        QSqlQuery query(database_);
        if (!query.exec(QString::fromLatin1(sql))) fail(query.lastError());
    }

private:
    static constexpr auto connection = "library";
    QSqlDatabase database_;
};

class QtSQL : public SQLContender<QtDatabase> {
public:
    QtSQL() : SQLContender("Qt SQL") {}

private:
    int argumentCount_ = 1;
    char program_[12] = "bench_store";
    char* arguments_[2] = {program_, nullptr};
    QCoreApplication application_{argumentCount_, arguments_}; // finds the driver
};

} // namespace

std::unique_ptr<Contender> makeQtSQL() { return std::make_unique<QtSQL>(); }

} // namespace Tessarin::benchmarks
#else
std::unique_ptr<Tessarin::benchmarks::Contender> Tessarin::benchmarks::makeQtSQL() { return nullptr; }
#endif
