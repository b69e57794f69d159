#pragma once
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <string>

struct sqlite3_context;

namespace Tessarin::SQLite {

/// A table in the eyes of statements, whose rows a program gives while a statement runs. To insert thousands from there takes half of
/// the time that it takes to bind and step each, and links a third ("store", W1). One for a connection; it lives as long as that is
/// used.
class TESSARIN_API GivenRows {
public:
    explicit GivenRows(Connection& connection);
    GivenRows(GivenRows const&) = delete;
    GivenRows& operator=(GivenRows const&) = delete;

    static constexpr std::size_t mostColumns = 64;
    /// With fewer rows it is not worth it.
    static constexpr std::size_t fewest = 8;
    /// What the table is called, and its columns: from 0. No table or view of a file is taken for it.
    static constexpr char const* table = "temp.tessarin_rows";
    static std::string column(std::size_t at) { return "c" + std::to_string(at); }

    /// What becomes of a value. Texts and bytes are only looked at: they must live until the statement has ended.
    class Cell {
    public:
        void give(std::nullptr_t) const noexcept;
        void give(std::int64_t value) const noexcept;
        void give(double value) const noexcept;
        void give(std::string_view text) const noexcept;
        void give(std::span<std::byte const> bytes) const noexcept;

    private:
        friend class GivenRows;
        explicit Cell(sqlite3_context* context) noexcept : context_(context) {}
        sqlite3_context* context_;
    };
    using Give = FunctionRef<void(std::size_t row, std::size_t column, Cell cell)>; // must not throw
    /// Runs a statement that reads the table, which has so many rows meanwhile. Gives how many records it changed.
    std::int64_t run(Statement& statement, std::size_t count, Give give);

private:
    struct Module; // what SQLite calls

    std::string declaration_;
    std::size_t count_ = 0;
    Give const* give_ = nullptr;
};

} // namespace Tessarin::SQLite
