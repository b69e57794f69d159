#pragma once
#include "benchmarks/store/Contender.h"
#include <cstdint>
#include <memory>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Tessarin::benchmarks {

/// SQLite as a careful application uses it without any library: what fails throws, and nothing is done twice.
class RawStatement {
public:
    using KeptText = std::string;

    RawStatement(sqlite3* database, std::string_view sql) {
        sqlite3_stmt* made = nullptr;
        if (sqlite3_prepare_v3(database, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &made, nullptr) !=
            SQLITE_OK)
            throw std::runtime_error(sqlite3_errmsg(database));
        statement_.reset(made);
    }

    // The text must live until the next run: nothing is copied.
    void bind(int at, std::string_view text) {
        sqlite3_bind_text(get(), at, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    }
    void bind(int at, std::int64_t value) { sqlite3_bind_int64(get(), at, value); }
    void bind(int at, double value) { sqlite3_bind_double(get(), at, value); }

    bool step() {
        auto const result = sqlite3_step(get());
        if (result != SQLITE_ROW && result != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(sqlite3_db_handle(get())));
        return result == SQLITE_ROW;
    }
    void reset() { sqlite3_reset(get()); }
    void run() {
        step();
        reset();
    }

    std::string_view text(int column) const {
        auto const* bytes = reinterpret_cast<char const*>(sqlite3_column_text(get(), column));
        return {bytes ? bytes : "", static_cast<std::size_t>(sqlite3_column_bytes(get(), column))};
    }
    std::int64_t integer(int column) const { return sqlite3_column_int64(get(), column); }
    double real(int column) const { return sqlite3_column_double(get(), column); }
    /// Of the record that was inserted last.
    std::int64_t lastKey() const { return sqlite3_last_insert_rowid(sqlite3_db_handle(get())); }

private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    sqlite3_stmt* get() const { return statement_.get(); }
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

class RawDatabase {
public:
    /// WAL, 8 MB of page cache, one thread at a time.
    RawDatabase(std::string const& file, Synchronous synchronous);
    /// Nothing is set but what the file says itself.
    explicit RawDatabase(std::string const& file);

    RawStatement prepare(std::string_view sql) { return {handle_.get(), sql}; }
    void execute(char const* sql);

private:
    struct Close {
        void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
    };
    std::unique_ptr<sqlite3, Close> handle_;
};

} // namespace Tessarin::benchmarks
