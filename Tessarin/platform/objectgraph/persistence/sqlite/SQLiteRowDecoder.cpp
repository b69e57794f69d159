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
    columnCount_ = names.size();
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

SQLiteRowDecoder::Values SQLiteRowDecoder::valuesOf(SQLite::Statement const& statement) {
    values_.resize(columnCount_);
    for (std::size_t at = 0; at < columnCount_; ++at)
        values_[at] = sqlite3_column_value(statement.handle(), static_cast<int>(at));
    return values_;
}

void SQLiteRowDecoder::run(SQLiteRowFeed& feed, SQLite::Statement& statement, SQLiteRowFeed::Take take) {
    if (isFed()) return feed.run(statement, take);
    while (statement.step()) take(valuesOf(statement));
    statement.reset();
}

SQLiteRowDecoder::Plan const* SQLiteRowDecoder::planOf(Values values) const noexcept {
    if (!hasEntityColumn_) return &plans_.front().second;
    auto const number = sqlite3_value_int64(values[2]);
    for (auto const& [known, plan] : plans_)
        if (known == number) return &plan;
    return nullptr;
}

// What reads as zero or nothing may be NULL; only then is the type asked for.
namespace {

bool isNull(sqlite3_value* value) { return sqlite3_value_type(value) == SQLITE_NULL; }

/// The text or bytes of a value, false for NULL; the memory is SQLite's until the next record.
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

RecordKey keyOf(SQLiteRowFeed::Values values) { return sqlite3_value_int64(values[0]); }
std::uint32_t versionOf(RecordKey key, SQLiteRowFeed::Values values) { return versionFrom(key, sqlite3_value_int64(values[1])); }

} // namespace

RowRef SQLiteRowDecoder::row(SQLite::Statement const& statement) {
    auto const key = statement.integer(0);
    auto const version = versionFrom(key, statement.integer(1));
    auto const& root = plans_.front().second.layout->entity();
    if (auto cached = space_.cache().find(key, version)) {
        requireSameTree(cached->entity(), root, key);
        return cached;
    }
    auto const values = valuesOf(statement); // only now: most look-ups end above
    auto const* plan = planOf(values);
    if (!plan) return {};
    auto row = decoded(values, *plan, key, version, nullptr);
    space_.cache().addAll({&row, 1}, asOf_);
    requireSameTree(row->entity(), root, key);
    return row;
}

RowRef SQLiteRowDecoder::decoded(Values values, Plan const& plan, RecordKey key, std::uint32_t version, RowBlockWriter* blocks) {
    builder_.begin(*plan.layout, key, version);
    for (auto const& [cell, column, type, place] : plan.cells) {
        auto* const value = values[column];
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
bool SQLiteRowDecoder::packInto(RowBlockWriter::Room room, Values values, Plan const& plan, std::size_t& size) {
    auto const& packing = plan.layout->packing(false);
    auto* const row = room.row;
    std::memset(row + sizeof(Row), 0, packing.heap - sizeof(Row));
    auto end = packing.heap;
    for (auto const& [cell, column, type, place] : plan.cells) {
        auto* const value = values[column];
        if (isHeapCell(type)) {
            std::string_view content;
            bool const isThere = readContent(value, type, content);
            if (content.size() > room.size - end) return false;
            std::memcpy(row + end, content.data(), content.size());
            end += static_cast<std::uint32_t>(content.size());
            std::memcpy(row + place.offset, &end, sizeof end);
            if (!isThere) continue;
        } else if (type == CellType::Real) {
            auto const number = sqlite3_value_double(value);
            if (number == 0 && isNull(value)) continue;
            std::memcpy(row + place.offset, &number, sizeof number);
        } else {
            auto const number = sqlite3_value_int64(value);
            if (number == 0 && isNull(value)) continue;
            if (!place.hold(row, number)) return false;
        }
        packing.setPresent(row, cell);
    }
    size = end;
    return true;
}

/// Packs one record after the other behind those that a list has.
class SQLiteRowDecoder::Filling {
public:
    Filling(SQLiteRowDecoder& decoder, std::vector<RowRef>& rows) : decoder_(decoder), rows_(rows), known_(rows.size()) {}
    Filling(Filling const&) = delete;
    Filling& operator=(Filling const&) = delete;
    ~Filling() { decoder_.blocks_.close(); }

    void add(Values values) {
        auto const* plan = decoder_.planOf(values);
        if (!plan) return;
        auto const key = keyOf(values);
        auto const version = versionOf(key, values);
        auto& blocks = decoder_.blocks_;
        auto const least = plan->layout->packing(false).heap + usualText;
        if (std::size_t size = 0; least <= RowBlockWriter::longest && packInto(blocks.room(least), values, *plan, size))
            rows_.push_back(blocks.commit(*plan->layout, key, version, size));
        else
            rows_.push_back(decoder_.decoded(values, *plan, key, version, &blocks));
        if (rows_.size() - known_ == run) enterIntoCache();
    }
    bool finish() {
        enterIntoCache();
        return areNew_;
    }

private:
    static constexpr std::size_t run = 256; // rows that go into the cache together

    void enterIntoCache() {
        auto const fresh = std::span(rows_).subspan(known_);
        areNew_ = decoder_.space_.cache().addAll(fresh, decoder_.asOf_) == 0 && areNew_;
        for (auto const& row : fresh) requireSameTree(row->entity(), decoder_.plans_.front().second.layout->entity(), row->key());
        known_ = rows_.size();
    }

    SQLiteRowDecoder& decoder_;
    std::vector<RowRef>& rows_;
    std::size_t known_;
    bool areNew_ = true;
};

bool SQLiteRowDecoder::readAll(SQLiteRowFeed& feed, SQLite::Statement& statement, std::vector<RowRef>& rows) {
    return readAll(feed, statement, rows, [](RecordKey) { return true; });
}

bool SQLiteRowDecoder::readAll(SQLiteRowFeed& feed, SQLite::Statement& statement, std::vector<RowRef>& rows, Wants wants) {
    Filling filling(*this, rows);
    run(feed, statement, [&](Values values) {
        if (wants(keyOf(values))) filling.add(values);
    });
    return filling.finish();
}

bool SQLiteRowDecoder::readAll(SQLite::Statement& statement, std::vector<RowRef>& rows) {
    Filling filling(*this, rows);
    while (statement.step()) filling.add(valuesOf(statement));
    return filling.finish();
}

} // namespace Tessarin
