// SQLiteCpp, a thin wrapper: the same SQL through its classes.
#include "benchmarks/store/SQLContender.h"

#ifdef TESSARIN_HAS_SQLITECPP
#include <SQLiteCpp/SQLiteCpp.h>

namespace Tessarin::benchmarks {
namespace {

class CppStatement {
public:
    using KeptText = std::string;

    CppStatement(SQLite::Database& database, char const* sql) : database_(&database), statement_(database, sql) {}

    // The text must live until the next run: nothing is copied.
    void bind(int at, std::string const& text) { statement_.bindNoCopy(at, text); }
    void bind(int at, std::string_view text) { statement_.bind(at, std::string(text)); }
    void bind(int at, std::int64_t value) { statement_.bind(at, value); }
    void bind(int at, double value) { statement_.bind(at, value); }

    bool step() { return statement_.executeStep(); }
    void reset() { statement_.reset(); }
    void run() {
        statement_.exec();
        statement_.reset();
    }

    std::string_view text(int at) {
        auto const column = statement_.getColumn(at);
        auto const* const bytes = column.getText(); // before the length, which is that of the text only then
        return {bytes, static_cast<std::size_t>(column.getBytes())};
    }
    std::int64_t integer(int at) { return statement_.getColumn(at).getInt64(); }
    double real(int at) { return statement_.getColumn(at).getDouble(); }
    std::int64_t lastKey() const { return database_->getLastInsertRowid(); }

private:
    SQLite::Database* database_;
    SQLite::Statement statement_;
};

class CppDatabase {
public:
    CppDatabase(std::string const& file, Synchronous synchronous)
        : database_(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE) {
        execute("PRAGMA journal_mode = WAL");
        execute(synchronous == Synchronous::Full ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
        execute("PRAGMA cache_size = -8192");
    }

    CppStatement prepare(char const* sql) { return {database_, sql}; }
    void execute(char const* sql) { database_.exec(sql); }

private:
    SQLite::Database database_;
};

} // namespace

std::unique_ptr<Contender> makeSQLiteCpp() { return std::make_unique<SQLContender<CppDatabase>>("SQLiteCpp"); }

} // namespace Tessarin::benchmarks
#else
std::unique_ptr<Tessarin::benchmarks::Contender> Tessarin::benchmarks::makeSQLiteCpp() { return nullptr; }
#endif
