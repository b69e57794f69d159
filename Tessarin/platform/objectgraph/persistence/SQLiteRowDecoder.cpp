#include "Tessarin/platform/objectgraph/persistence/SQLiteRowDecoderPrivate.h"

#include <sqlite3.h>

#include <algorithm>

namespace Tessarin {

SQLiteRowDecoder::SQLiteRowDecoder(SQLiteSchema const& schema, NSEntityDescription const& entity, bool includesSubentities)
    : space_(schema.space()), hasEntityColumn_(schema.tableOf(entity).hasEntityColumn) {
    std::vector<std::string> names{"id", "version"};
    if (hasEntityColumn_) names.push_back("entity");
    addPlans(schema, entity, includesSubentities, names);
    for (auto const& name : names) columns_ += (columns_.empty() ? "t0." : ", t0.") + name;
}

void SQLiteRowDecoder::addPlans(SQLiteSchema const& schema, NSEntityDescription const& entity, bool includesSubentities,
                                std::vector<std::string>& names) {
    Plan plan{.layout = &space_.layoutOf(entity)};
    auto const cells = plan.layout->cells();
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        auto const& name = schema.columnOf(*cells[cell].property);
        auto const found = std::ranges::find(names.begin() + 2, names.end(), name);
        plan.cells.push_back({cell, static_cast<int>(found - names.begin()), cells[cell].type});
        if (found == names.end()) names.push_back(name);
    }
    plans_.emplace_back(schema.numberOf(entity), std::move(plan));
    if (!includesSubentities) return;
    for (auto const* child : entity.subentities()) addPlans(schema, *child, true, names);
}

SQLiteRowDecoder::Plan const* SQLiteRowDecoder::planOf(std::int64_t entityNumber) const noexcept {
    for (auto const& [number, plan] : plans_)
        if (number == entityNumber) return &plan;
    return nullptr;
}

// SQLite's values are read directly: one look-up per column, and no lock, since a connection serves one thread at a time.
RowRef SQLiteRowDecoder::row(SQLite::Statement const& statement) {
    auto* const handle = statement.handle();
    auto const key = sqlite3_column_int64(handle, 0);
    auto const version = static_cast<std::uint32_t>(sqlite3_column_int64(handle, 1));
    if (auto cached = space_.cache().find(key, version)) return cached;

    auto const* plan = hasEntityColumn_ ? planOf(sqlite3_column_int64(handle, 2)) : &plans_.front().second;
    if (!plan) return {}; // a record of an entity that this model does not know
    builder_.begin(*plan->layout, key, version);
    for (auto const& [cell, column, type] : plan->cells) {
        auto* const value = sqlite3_column_value(handle, column);
        if (sqlite3_value_type(value) == SQLITE_NULL) continue;
        switch (type) {
        case CellType::Integer:
        case CellType::Reference: builder_.setInteger(cell, sqlite3_value_int64(value)); break;
        case CellType::Real: builder_.setReal(cell, sqlite3_value_double(value)); break;
        case CellType::Text: {
            auto const* text = reinterpret_cast<char const*>(sqlite3_value_text(value));
            if (!text) throw std::bad_alloc();
            builder_.setText(cell, {text, static_cast<std::size_t>(sqlite3_value_bytes(value))});
            break;
        }
        case CellType::Bytes: {
            auto const* bytes = static_cast<char const*>(sqlite3_value_blob(value));
            builder_.setText(cell, {bytes, static_cast<std::size_t>(sqlite3_value_bytes(value))});
            break;
        }
        }
    }
    auto row = builder_.finish();
    space_.cache().add(row);
    return row;
}

void SQLiteRowDecoder::readAll(SQLite::Statement& statement, std::vector<RowRef>& rows) {
    while (statement.step())
        if (auto row = this->row(statement)) rows.push_back(std::move(row));
}

} // namespace Tessarin
