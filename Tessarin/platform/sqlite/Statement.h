#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Value.h"
#include <span>
#include <string_view>

struct sqlite3_stmt;

namespace Tessarin::SQLite {

class Connection;

/// A prepared statement, to be run many times. Positions of parameters count from 1, of columns from 0. Texts and bytes
/// that are bound are only looked at: they must live until the next `reset`. Used with its connection, by one thread at a
/// time. What fails throws Failure.
class TESSARIN_API Statement {
public:
    Statement(Connection& connection, std::string_view sql);
    ~Statement();
    Statement(Statement const&) = delete;
    Statement& operator=(Statement const&) = delete;

    void bind(int at, std::int64_t value);
    void bind(int at, double value);
    void bind(int at, std::string_view text);
    void bind(int at, std::span<std::byte const> bytes);
    void bindNull(int at);
    void clearBindings() noexcept;

    /// Goes to the next row; false when there is none.
    bool step();
    void reset() noexcept;
    /// Runs a statement without rows, and resets it. Gives how many records it changed.
    std::int64_t run();

    int columnCount() const noexcept;
    int parameterCount() const noexcept;
    bool isNull(int column) const noexcept;
    std::int64_t integer(int column) const noexcept;
    double real(int column) const noexcept;
    // Valid until the next step or reset.
    std::string_view text(int column) const noexcept;
    std::span<std::byte const> bytes(int column) const noexcept;

    /// For loops in which even a call per column counts.
    sqlite3_stmt* handle() const noexcept { return handle_; }
    std::string_view sql() const noexcept;

private:
    friend class StatementUse;
    void check(int code) const;

    Connection& connection_;
    sqlite3_stmt* handle_ = nullptr;
    bool isInUse_ = false;
};

/// A statement in use: reset when this goes, so that it holds no lock and no row any longer.
class StatementUse {
public:
    explicit StatementUse(Statement& statement) noexcept : statement_(&statement) { statement.isInUse_ = true; }
    StatementUse(StatementUse const&) = delete;
    StatementUse& operator=(StatementUse const&) = delete;
    ~StatementUse() {
        statement_->isInUse_ = false;
        statement_->reset();
    }
    Statement* operator->() const noexcept { return statement_; }
    Statement& operator*() const noexcept { return *statement_; }
    static bool isInUse(Statement const& statement) noexcept { return statement.isInUse_; }

private:
    Statement* statement_;
};

} // namespace Tessarin::SQLite
