// SQLite by hand does what the store's program does.
#include "benchmarks/start/programs/Libraries.h"
#include <sqlite3.h>

int main(int argc, char** argv) {
    return runOrCountLibraries(argc, argv, [](char const* file) {
        sqlite3* database = nullptr;
        bool const isOpen = sqlite3_open(file, &database) == SQLITE_OK;
        auto const run = [&](char const* sql) { return sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK; };
        bool const hasCounted = isOpen && run("PRAGMA journal_mode = WAL") &&
                                run("CREATE TABLE IF NOT EXISTS Note (id INTEGER PRIMARY KEY, text TEXT)") &&
                                run("SELECT count(*) FROM Note");
        sqlite3_close(database);
        return hasCounted ? 0 : 1;
    });
}
