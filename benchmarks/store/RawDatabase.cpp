#include "benchmarks/store/RawDatabase.h"

namespace Tessarin::benchmarks {

RawDatabase::RawDatabase(std::string const& file) {
    sqlite3* opened = nullptr;
    auto const flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    auto const result = sqlite3_open_v2(file.c_str(), &opened, flags, nullptr);
    handle_.reset(opened);
    if (result != SQLITE_OK) throw std::runtime_error(file + ": " + sqlite3_errmsg(opened));
    sqlite3_busy_timeout(opened, 30'000); // two of its threads may open the file at once
}

RawDatabase::RawDatabase(std::string const& file, Synchronous synchronous) : RawDatabase(file) {
    execute("PRAGMA journal_mode = WAL");
    execute(synchronous == Synchronous::Full ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
    execute("PRAGMA cache_size = -8192");
}

void RawDatabase::execute(char const* sql) {
    char* message = nullptr;
    if (sqlite3_exec(handle_.get(), sql, nullptr, nullptr, &message) == SQLITE_OK) return;
    std::string const text = message ? message : "out of memory";
    sqlite3_free(message);
    throw std::runtime_error(text);
}

} // namespace Tessarin::benchmarks
