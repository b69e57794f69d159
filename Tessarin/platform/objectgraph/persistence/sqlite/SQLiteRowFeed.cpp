#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteRowFeedPrivate.h"

#include <sqlite3.h>

#include <utility>

namespace Tessarin {

struct SQLiteRowFeed::Steps {
    /// An exception must not pass through SQLite: it waits until the statement has ended.
    static void step(sqlite3_context* context, int count, sqlite3_value** values) {
        auto& feed = *static_cast<SQLiteRowFeed*>(sqlite3_user_data(context));
        if (!feed.take_) return;
        try {
            (*feed.take_)({values, static_cast<std::size_t>(count)});
        } catch (...) {
            feed.thrown_ = std::current_exception();
            sqlite3_result_error_code(context, SQLITE_ABORT);
        }
    }
    static void finish(sqlite3_context*) {}
};

SQLiteRowFeed::SQLiteRowFeed(SQLite::Connection& connection) {
    auto const code = sqlite3_create_function_v2(connection.handle(), "tessarin_feed", -1, SQLITE_UTF8 | SQLITE_DIRECTONLY, this,
                                                 nullptr, Steps::step, Steps::finish, nullptr);
    if (code != SQLITE_OK) throw SQLite::Failure::of(connection.handle(), code, connection.path());
}

std::int64_t SQLiteRowFeed::integer(sqlite3_value* value) noexcept { return sqlite3_value_int64(value); }

void SQLiteRowFeed::run(SQLite::Statement& statement, Take take) {
    auto const* const former = std::exchange(take_, &take);
    struct Restoring {
        SQLiteRowFeed& feed;
        Take const* former;
        ~Restoring() { feed.take_ = former; }
    } const restoring{*this, former};
    try {
        statement.step();
    } catch (SQLite::Failure const&) {
        if (auto const thrown = std::exchange(thrown_, nullptr)) std::rethrow_exception(thrown);
        throw;
    }
    statement.reset();
}

} // namespace Tessarin
