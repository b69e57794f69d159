#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/sqlite/GivenRows.h"
#include <map>
#include <memory>

namespace Tessarin {

/// Hands a cell's value to `take` as SQLite is to keep it: nullptr, a number, a text or bytes.
template <class Take> void takeCell(Row const& row, std::size_t cell, Take take) {
    if (!row.isPresent(cell)) return take(nullptr);
    switch (row.layout().cells()[cell].type) {
    case CellType::Integer:
    case CellType::Reference: return take(row.integer(cell));
    case CellType::Real: return take(row.real(cell));
    case CellType::Text: return take(row.text(cell));
    case CellType::Bytes: return take(row.bytes(cell));
    }
}
/// Binds a cell as it is kept.
void bindCell(SQLite::Statement& statement, int at, Row const& row, std::size_t cell);

/// Writes the records of one entity over the store's writing connection; its statements stay prepared.
class TESSARIN_API SQLiteRecordWriter {
public:
    SQLiteRecordWriter(SQLite::GivenRows& given, SQLite::Connection& connection, SQLiteSchema const& schema,
                       NSEntityDescription const& entity);

    void insert(std::span<Row const* const> rows);
    /// Writes the cells that differ. False, and nothing is written, when the record is not there in the version of `before`.
    bool update(Row const& before, Row const& after);

private:
    using Mask = std::vector<std::uint64_t>; // a bit per cell
    std::unique_ptr<SQLite::Statement> updateOf(Mask const& mask) const;

    void insertOne(Row const& row);
    struct Insertion {
        std::string into, values;
    };
    Insertion insertion(FunctionRef<std::string(std::size_t)> value) const;

    SQLite::GivenRows& given_;
    SQLite::Connection& connection_;
    SQLiteSchema const& schema_;
    NSEntityDescription const& entity_;
    RowLayout const& layout_;
    std::unique_ptr<SQLite::Statement> insert_, insertGiven_;
    std::map<Mask, std::unique_ptr<SQLite::Statement>> updates_;
    Mask mask_, lastMask_;
    SQLite::Statement* last_ = nullptr; // of lastMask_: usually many records in succession change the same properties
};

} // namespace Tessarin
