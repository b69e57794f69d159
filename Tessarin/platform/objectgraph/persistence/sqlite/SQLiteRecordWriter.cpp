#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteRecordWriterPrivate.h"

#include <fmt/format.h>

namespace Tessarin {

SQLiteRecordWriter::SQLiteRecordWriter(SQLite::Connection& connection, SQLiteSchema const& schema,
                                       NSEntityDescription const& entity)
    : connection_(connection), schema_(schema), entity_(entity), layout_(schema.space().layoutOf(entity)) {
    auto const& table = schema.tableOf(entity);
    auto columns = std::string("id, version");
    auto values = std::string("?1, ?2");
    if (table.hasEntityColumn) {
        columns += ", entity";
        values += fmt::format(", {}", schema.numberOf(entity));
    }
    for (std::size_t cell = 0; cell < layout_.cells().size(); ++cell) {
        columns += ", " + schema.columnOf(*layout_.cells()[cell].property);
        values += fmt::format(", ?{}", cell + 3);
    }
    insert_ = std::make_unique<SQLite::Statement>(connection,
                                                  fmt::format("INSERT INTO {} ({}) VALUES ({})", table.name, columns, values));
}

void bindCell(SQLite::Statement& statement, int at, Row const& row, std::size_t cell) {
    if (!row.isPresent(cell)) return statement.bindNull(at);
    switch (row.layout().cells()[cell].type) {
    case CellType::Integer:
    case CellType::Reference: return statement.bind(at, row.integer(cell));
    case CellType::Real: return statement.bind(at, row.real(cell));
    case CellType::Text: return statement.bind(at, row.text(cell));
    case CellType::Bytes: return statement.bind(at, row.bytes(cell));
    }
}

void SQLiteRecordWriter::insert(Row const& row) {
    insert_->bind(1, row.key());
    insert_->bind(2, std::int64_t{row.version()});
    for (std::size_t cell = 0; cell < layout_.cells().size(); ++cell) bindCell(*insert_, static_cast<int>(cell) + 3, row, cell);
    insert_->run();
}

std::unique_ptr<SQLite::Statement> SQLiteRecordWriter::updateOf(Mask const& mask) const {
    auto sql = fmt::format("UPDATE {} SET version = ?1", schema_.tableOf(entity_).name);
    int at = 4;
    for (std::size_t cell = 0; cell < layout_.cells().size(); ++cell)
        if (mask[cell / 64] >> (cell % 64) & 1)
            sql += fmt::format(", {} = ?{}", schema_.columnOf(*layout_.cells()[cell].property), at++);
    return std::make_unique<SQLite::Statement>(connection_, sql + " WHERE id = ?2 AND version = ?3");
}

bool SQLiteRecordWriter::update(Row const& before, Row const& after) {
    auto const count = layout_.cells().size();
    mask_.assign((count + 63) / 64, 0);
    for (std::size_t cell = 0; cell < count; ++cell)
        if (!after.cellEquals(cell, before)) mask_[cell / 64] |= std::uint64_t{1} << (cell % 64);
    if (!last_ || mask_ != lastMask_) {
        auto& kept = updates_[mask_];
        if (!kept) kept = updateOf(mask_);
        last_ = kept.get();
        lastMask_ = mask_;
    }
    last_->bind(1, std::int64_t{after.version()});
    last_->bind(2, before.key());
    last_->bind(3, std::int64_t{before.version()});
    int at = 4;
    for (std::size_t cell = 0; cell < count; ++cell)
        if (mask_[cell / 64] >> (cell % 64) & 1) bindCell(*last_, at++, after, cell);
    return last_->run() != 0;
}

} // namespace Tessarin
