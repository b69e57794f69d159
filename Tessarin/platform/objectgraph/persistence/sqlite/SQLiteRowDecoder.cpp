#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteRowDecoderPrivate.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstring>

namespace Tessarin {

SQLiteRowDecoder::SQLiteRowDecoder(SQLiteSchema const& schema, NSEntityDescription const& entity, bool includesSubentities,
                                   RowCache::Moment const& asOf)
    : space_(schema.space()), asOf_(asOf), hasEntityColumn_(schema.tableOf(entity).hasEntityColumn) {
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
        plan.cells.push_back(
            {cell, static_cast<int>(found - names.begin()), cells[cell].type, plan.layout->packing(false).places[cell]});
        if (found == names.end()) names.push_back(name);
    }
    plans_.emplace_back(schema.numberOf(entity), std::move(plan));
    if (!includesSubentities) return;
    for (auto const* child : entity.subentities()) addPlans(schema, *child, true, names);
}

SQLiteRowDecoder::Plan const* SQLiteRowDecoder::planOf(sqlite3_stmt* handle) const noexcept {
    if (!hasEntityColumn_) return &plans_.front().second;
    auto const number = sqlite3_column_int64(handle, 2);
    for (auto const& [known, plan] : plans_)
        if (known == number) return &plan;
    return nullptr;
}

RowRef SQLiteRowDecoder::row(SQLite::Statement const& statement) {
    auto* const handle = statement.handle();
    auto const key = sqlite3_column_int64(handle, 0);
    auto const version = versionFrom(key, sqlite3_column_int64(handle, 1));
    auto const& root = plans_.front().second.layout->entity();
    if (auto cached = space_.cache().find(key, version)) {
        requireSameTree(cached->entity(), root, key);
        return cached;
    }
    auto const* plan = planOf(handle);
    if (!plan) return {};
    auto row = decoded(handle, *plan, key, version, nullptr);
    space_.cache().addAll({&row, 1}, asOf_);
    requireSameTree(row->entity(), root, key);
    return row;
}

// In what follows SQLite's values are read directly: one look-up per column, and no lock, since a connection serves one
// thread at a time. What reads as zero or nothing may be NULL; only then is the type asked for.
namespace {

bool isNull(sqlite3_value* value) { return sqlite3_value_type(value) == SQLITE_NULL; }

/// The text or bytes of a value, false for NULL; the memory is SQLite's until the next step.
bool readContent(sqlite3_value* value, CellType type, std::string_view& content) {
    auto const* bytes = static_cast<char const*>(type == CellType::Text ? sqlite3_value_text(value) : sqlite3_value_blob(value));
    if (bytes) {
        content = {bytes, static_cast<std::size_t>(sqlite3_value_bytes(value))};
        return true;
    }
    content = {""};
    if (isNull(value)) return false;
    if (sqlite3_value_bytes(value) != 0) throw std::bad_alloc();
    return true;
}

} // namespace

RowRef SQLiteRowDecoder::decoded(sqlite3_stmt* handle, Plan const& plan, RecordKey key, std::uint32_t version,
                                 RowBlockWriter* blocks) {
    builder_.begin(*plan.layout, key, version);
    for (auto const& [cell, column, type, place] : plan.cells) {
        auto* const value = sqlite3_column_value(handle, column);
        if (isHeapCell(type)) {
            if (std::string_view content; readContent(value, type, content)) builder_.setText(cell, content);
        } else if (!isNull(value)) {
            type == CellType::Real ? builder_.setReal(cell, sqlite3_value_double(value))
                                   : builder_.setInteger(cell, sqlite3_value_int64(value));
        }
    }
    return builder_.finish(blocks);
}

/// Writes the values right into the open block; false when they do not fit there.
bool SQLiteRowDecoder::packInto(RowBlockWriter::Room room, sqlite3_stmt* handle, Plan const& plan, std::size_t& size) {
    auto const& packing = plan.layout->packing(false);
    auto* const row = room.row;
    std::memset(row + sizeof(Row), 0, packing.heap - sizeof(Row));
    auto end = packing.heap;
    for (auto const& [cell, column, type, place] : plan.cells) {
        if (isHeapCell(type)) {
            std::string_view content;
            bool const isThere = readContent(sqlite3_column_value(handle, column), type, content);
            if (content.size() > room.size - end) return false;
            std::memcpy(row + end, content.data(), content.size());
            end += static_cast<std::uint32_t>(content.size());
            std::memcpy(row + place.offset, &end, sizeof end);
            if (!isThere) continue;
        } else if (type == CellType::Real) {
            auto const number = sqlite3_column_double(handle, column);
            if (number == 0 && sqlite3_column_type(handle, column) == SQLITE_NULL) continue;
            std::memcpy(row + place.offset, &number, sizeof number);
        } else {
            auto const number = sqlite3_column_int64(handle, column);
            if (number == 0 && sqlite3_column_type(handle, column) == SQLITE_NULL) continue;
            if (!place.hold(row, number)) return false;
        }
        packing.setPresent(row, cell);
    }
    size = end;
    return true;
}

bool SQLiteRowDecoder::readAll(SQLite::Statement& statement, std::vector<RowRef>& rows) {
    static constexpr std::size_t run = 256; // rows that go into the cache together
    struct Closing {
        RowBlockWriter& blocks;
        ~Closing() { blocks.close(); }
    } const closing{blocks_};
    auto* const handle = statement.handle();
    auto known = rows.size();
    bool isNew = true;
    auto const intoCache = [&] {
        auto const fresh = std::span(rows).subspan(known);
        isNew = space_.cache().addAll(fresh, asOf_) == 0 && isNew;
        for (auto const& row : fresh) requireSameTree(row->entity(), plans_.front().second.layout->entity(), row->key());
        known = rows.size();
    };
    while (statement.step()) {
        auto const* plan = planOf(handle);
        if (!plan) continue;
        auto const key = sqlite3_column_int64(handle, 0);
        auto const version = versionFrom(key, sqlite3_column_int64(handle, 1));
        auto const least = plan->layout->packing(false).heap + usualText;
        if (std::size_t size = 0; least <= RowBlockWriter::longest && packInto(blocks_.room(least), handle, *plan, size))
            rows.push_back(blocks_.commit(*plan->layout, key, version, size));
        else
            rows.push_back(decoded(handle, *plan, key, version, &blocks_));
        if (rows.size() - known == run) intoCache();
    }
    intoCache();
    return isNew;
}

} // namespace Tessarin
