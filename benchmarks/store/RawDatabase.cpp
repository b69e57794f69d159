#include "benchmarks/store/RawDatabase.h"

namespace Tessarin::benchmarks {

RawDatabase::RawDatabase(std::string const& file, Synchronous synchronous) {
    sqlite3* opened = nullptr;
    auto const flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    auto const result = sqlite3_open_v2(file.c_str(), &opened, flags, nullptr);
    handle_.reset(opened);
    if (result != SQLITE_OK) throw std::runtime_error(file + ": " + sqlite3_errmsg(opened));
    execute("PRAGMA journal_mode = WAL");
    execute(synchronous == Synchronous::Full ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
    execute("PRAGMA cache_size = -8192");
}

RawDatabase RawDatabase::create(std::string const& file, Synchronous synchronous) {
    RawDatabase database(file, synchronous);
    // Each relationship is indexed in both directions. The indexes exist before the rows, as in any application whose
    // store lives longer than its first import.
    database.execute(
        "BEGIN;"
        "CREATE TABLE Author (id INTEGER PRIMARY KEY, name TEXT, birth REAL, rating REAL);"
        "CREATE TABLE Tag (id INTEGER PRIMARY KEY, name TEXT);"
        "CREATE TABLE Book (id INTEGER PRIMARY KEY, code TEXT, title TEXT, year INTEGER, price REAL, inPrint INTEGER, author "
        "INTEGER);"
        "CREATE TABLE Book_tags (owner INTEGER NOT NULL, member INTEGER NOT NULL, PRIMARY KEY (owner, member)) WITHOUT ROWID;"
        "CREATE INDEX Author_name ON Author (name);"
        "CREATE INDEX Book_code ON Book (code);"
        "CREATE INDEX Book_author ON Book (author);"
        "CREATE INDEX Book_tags_member ON Book_tags (member);"
        "COMMIT");
    return database;
}

void RawDatabase::execute(char const* sql) {
    char* message = nullptr;
    if (sqlite3_exec(handle_.get(), sql, nullptr, nullptr, &message) == SQLITE_OK) return;
    std::string const text = message ? message : "out of memory";
    sqlite3_free(message);
    throw std::runtime_error(text);
}

} // namespace Tessarin::benchmarks
