#include "Tessarin/platform/sqlite/StatementLog.h"

#include "Tessarin/platform/runtime/OneLinePrivate.h"

#include <cstdlib>
#include <fmt/format.h>
#include <sqlite3.h>
#include <string_view>
#include <unistd.h>

namespace Tessarin::SQLite {
namespace {

void write(StatementLog::Clock::time_point start, std::int64_t rows, int bound, std::string_view what) {
    auto const milliseconds = std::chrono::duration<double, std::milli>(StatementLog::Clock::now() - start).count();
    auto const line = fmt::format("SQL {:.3f} ms, {} rows, {} bound: {}\n", milliseconds, rows, bound, asOneLine(what));
    static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
}

} // namespace

std::unique_ptr<StatementLog> StatementLog::ifAskedFor(sqlite3* connection) {
    static bool const isAskedFor = [] {
        auto const* const text = ::secure_getenv("TESSARIN_SQL");
        return text && *text && std::string_view(text) != "0";
    }();
    if (!isAskedFor) return nullptr;
    auto log = std::make_unique<StatementLog>();
    sqlite3_trace_v2(connection, SQLITE_TRACE_STMT | SQLITE_TRACE_ROW | SQLITE_TRACE_PROFILE, told, log.get());
    return log;
}

int StatementLog::told(unsigned event, void* log, void* statement, void*) noexcept {
    auto& self = *static_cast<StatementLog*>(log);
    auto* const running = static_cast<sqlite3_stmt*>(statement);
    if (event == SQLITE_TRACE_STMT)
        self.runs_[running] = {.start = Clock::now()};
    else if (event == SQLITE_TRACE_ROW)
        ++self.runs_[running].rows;
    else
        self.ended(running);
    return 0;
}

void StatementLog::ended(sqlite3_stmt* statement) {
    auto const run = runs_.extract(statement);
    if (!run) return;
    auto const rows = sqlite3_stmt_readonly(statement) ? static_cast<std::int64_t>(run.mapped().rows)
                                                       : sqlite3_changes64(sqlite3_db_handle(statement));
    auto const* const sql = sqlite3_sql(statement);
    write(run.mapped().start, rows, sqlite3_bind_parameter_count(statement), sql ? sql : "");
}

void StatementLog::note(std::string_view what, Clock::time_point start, std::size_t rows) {
    write(start, static_cast<std::int64_t>(rows), 0, what);
}

} // namespace Tessarin::SQLite
