#pragma once
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <exception>
#include <span>
#include <string>

struct sqlite3_value;

namespace Tessarin {

/// Hands over the columns of each record of a query as SQLite reads it, from inside one step of the statement: an aggregate's
/// call costs less than half of a step and a question for each column. The records come in the order in which the query's plan
/// finds them; such a query can have neither ORDER BY nor LIMIT. One for a connection, and it lives as long as that is used.
class TESSARIN_API SQLiteRowFeed {
public:
    using Values = std::span<sqlite3_value* const>;
    using Take = FunctionRef<void(Values)>;

    explicit SQLiteRowFeed(SQLite::Connection& connection);
    SQLiteRowFeed(SQLiteRowFeed const&) = delete;
    SQLiteRowFeed& operator=(SQLiteRowFeed const&) = delete;

    static std::int64_t integer(sqlite3_value* value) noexcept;
    /// More cannot be the arguments of a call.
    static constexpr std::size_t mostColumns = 100;
    /// What such a query selects.
    static std::string selecting(std::string const& columns) { return "tessarin_feed(" + columns + ")"; }
    /// Runs a statement that selects that. What `take` throws ends it. The values are SQLite's, for the length of a call.
    void run(SQLite::Statement& statement, Take take);

private:
    struct Steps; // what SQLite calls

    Take const* take_ = nullptr;
    std::exception_ptr thrown_;
};

} // namespace Tessarin
