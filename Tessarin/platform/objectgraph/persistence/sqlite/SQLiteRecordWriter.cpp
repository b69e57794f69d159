#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteRecordWriterPrivate.h"

#include <fmt/format.h>

namespace Tessarin {

SQLiteRecordWriter::SQLiteRecordWriter(SQLite::GivenRows& given, SQLite::Connection& connection, SQLiteSchema const& schema,
                                       NSEntityDescription const& entity)
    : given_(given), connection_(connection), schema_(schema), entity_(entity), layout_(schema.space().layoutOf(entity)) {}

/// The values of key and version come first, then those of the cells.
SQLiteRecordWriter::Insertion SQLiteRecordWriter::insertion(FunctionRef<std::string(std::size_t)> value) const {
    auto const& table = schema_.tableOf(entity_);
    auto columns = std::string("id, version");
    auto values = value(0) + ", " + value(1);
    if (table.hasEntityColumn) {
        columns += ", entity";
        values += fmt::format(", {}", schema_.numberOf(entity_));
    }
    for (std::size_t cell = 0; cell < layout_.cells().size(); ++cell) {
        columns += ", " + schema_.columnOf(*layout_.cells()[cell].property);
        values += ", " + value(cell + 2);
    }
    return {fmt::format(" INTO {} ({}) ", table.name, columns), std::move(values)};
}

void bindCell(SQLite::Statement& statement, int at, Row const& row, std::size_t cell) {
    takeCell(row, cell, [&](auto value) {
        if constexpr (std::is_null_pointer_v<decltype(value)>)
            statement.bindNull(at);
        else
            statement.bind(at, value);
    });
}

/// Those that others would find half written are taken back with the transaction, so no statement need do so for itself.
void SQLiteRecordWriter::insert(std::span<Row const* const> rows) {
    if (rows.size() < SQLite::GivenRows::fewest || layout_.cells().size() + 2 > SQLite::GivenRows::mostColumns) {
        for (auto const* row : rows) insertOne(*row);
        return;
    }
    if (!insertGiven_) {
        auto const [into, values] = insertion(SQLite::GivenRows::column);
        insertGiven_ = std::make_unique<SQLite::Statement>(
            connection_, fmt::format("INSERT OR FAIL{}SELECT {} FROM {}", into, values, SQLite::GivenRows::table));
    }
    given_.run(*insertGiven_, rows.size(), [&](std::size_t at, std::size_t column, SQLite::GivenRows::Cell cell) {
        auto const& row = *rows[at];
        if (column == 0) return cell.give(row.key());
        if (column == 1) return cell.give(std::int64_t{row.version()});
        takeCell(row, column - 2, [&](auto value) { cell.give(value); });
    });
}

void SQLiteRecordWriter::insertOne(Row const& row) {
    if (!insert_) {
        auto const [into, values] = insertion([](std::size_t at) { return "?" + std::to_string(at + 1); });
        insert_ = std::make_unique<SQLite::Statement>(connection_, fmt::format("INSERT{}VALUES ({})", into, values));
    }
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
