#pragma once
#include "Tessarin/Export.h"
#include <chrono>
#include <memory>
#include <string_view>
#include <unordered_map>

struct sqlite3;
struct sqlite3_stmt;

namespace Tessarin::SQLite {

/// With TESSARIN_SQL=1 in the environment: one line on standard error for each statement that has run, with its time from the first
/// step to the end (in which rows were used, too), the rows that it gave or changed, and how many values were bound. Never the
/// values. Belongs to one connection.
class TESSARIN_API StatementLog {
public:
    using Clock = std::chrono::steady_clock;
    static std::unique_ptr<StatementLog> ifAskedFor(sqlite3* connection);
    /// What was read without a statement.
    void note(std::string_view what, Clock::time_point start, std::size_t rows);

private:
    struct Run {
        Clock::time_point start;
        std::size_t rows = 0;
    };
    static int told(unsigned event, void* log, void* statement, void* detail) noexcept;
    void ended(sqlite3_stmt* statement);

    std::unordered_map<sqlite3_stmt*, Run> runs_; // under way
};

} // namespace Tessarin::SQLite
