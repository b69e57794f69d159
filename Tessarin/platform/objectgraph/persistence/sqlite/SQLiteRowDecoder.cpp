#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteRowDecoderPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLitePagedValuesPrivate.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace Tessarin {

SQLiteRowDecoder::SQLiteRowDecoder(SQLiteSchema const& schema, NSEntityDescription const& entity, bool includesSubentities,
                                   RowCache::Moment const& asOf)
    : space_(schema.space()), asOf_(asOf), hasEntityColumn_(schema.tableOf(entity).hasEntityColumn), names_{"id", "version"} {
    if (hasEntityColumn_) names_.emplace_back("entity");
    addPlans(schema, entity, includesSubentities);
    for (auto const& name : names_) columns_ += (columns_.empty() ? "t0." : ", t0.") + name;
}

void SQLiteRowDecoder::addPlans(SQLiteSchema const& schema, NSEntityDescription const& entity, bool includesSubentities) {
    Plan plan{.layout = &space_.layoutOf(entity)};
    auto const cells = plan.layout->cells();
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        auto const& name = schema.columnOf(*cells[cell].property);
        auto const found = std::ranges::find(names_.begin() + 2, names_.end(), name);
        plan.cells.push_back(
            {cell, static_cast<int>(found - names_.begin()), cells[cell].type, plan.layout->packing(false).places[cell]});
        if (found == names_.end()) names_.push_back(name);
    }
    plans_.emplace_back(schema.numberOf(entity), std::move(plan));
    if (!includesSubentities) return;
    for (auto const* child : entity.subentities()) addPlans(schema, *child, true);
}

std::vector<std::size_t> SQLiteRowDecoder::placesOf(std::span<std::string const> columnsOfTable) const {
    std::vector<std::size_t> places;
    for (auto const& name : names_) {
        auto const found = std::ranges::find(columnsOfTable, name.starts_with('"') ? name : quoted(name));
        if (found == columnsOfTable.end()) return {};
        places.push_back(static_cast<std::size_t>(found - columnsOfTable.begin()));
    }
    return places;
}

SQLiteRowFeed::Values SQLiteRowDecoder::valuesOf(SQLite::Statement const& statement) {
    values_.resize(names_.size());
    for (std::size_t at = 0; at < values_.size(); ++at)
        values_[at] = sqlite3_column_value(statement.handle(), static_cast<int>(at));
    return values_;
}

void SQLiteRowDecoder::run(SQLiteRowFeed& feed, SQLite::Statement& statement, SQLiteRowFeed::Take take) {
    if (isFed()) return feed.run(statement, take);
    while (statement.step()) take(valuesOf(statement));
    statement.reset();
}

namespace {

/// What a statement gives. What reads as zero or nothing may be NULL; only then is the type asked for. The memory is SQLite's until
/// the next record.
class FedValues {
public:
    explicit FedValues(SQLiteRowFeed::Values values) : values_(values) {}

    RecordKey key() const { return sqlite3_value_int64(values_[0]); }
    std::uint32_t version() const { return versionFrom(key(), sqlite3_value_int64(values_[1])); }
    std::int64_t entity() const { return sqlite3_value_int64(values_[2]); }
    static constexpr bool isOdd() { return false; } // SQLite converts what is of another kind
    // False for NULL.
    bool readInteger(int column, std::int64_t& number) const {
        number = sqlite3_value_int64(at(column));
        return number != 0 || !isNull(column);
    }
    bool readReal(int column, double& number) const {
        number = sqlite3_value_double(at(column));
        return number != 0 || !isNull(column);
    }
    bool readContent(int column, CellType type, std::string_view& content) const {
        auto* const value = at(column);
        auto const* bytes =
            static_cast<char const*>(type == CellType::Text ? sqlite3_value_text(value) : sqlite3_value_blob(value));
        if (bytes) {
            content = {bytes, static_cast<std::size_t>(sqlite3_value_bytes(value))};
            return true;
        }
        content = {""};
        if (isNull(column)) return false;
        if (sqlite3_value_bytes(value) != 0) throw std::bad_alloc();
        return true;
    }

private:
    sqlite3_value* at(int column) const { return values_[static_cast<std::size_t>(column)]; }
    bool isNull(int column) const { return sqlite3_value_type(at(column)) == SQLITE_NULL; }

    SQLiteRowFeed::Values values_;
};

} // namespace

template <class Values> SQLiteRowDecoder::Plan const* SQLiteRowDecoder::planOf(Values const& values) const noexcept {
    if (!hasEntityColumn_) return &plans_.front().second;
    auto const number = values.entity();
    for (auto const& [known, plan] : plans_)
        if (known == number) return &plan;
    return nullptr;
}

RowRef SQLiteRowDecoder::row(SQLite::Statement const& statement) {
    auto const key = statement.integer(0);
    auto const version = versionFrom(key, statement.integer(1));
    auto const& root = plans_.front().second.layout->entity();
    if (auto cached = space_.cache().find(key, version)) {
        requireSameTree(cached->entity(), root, key);
        return cached;
    }
    FedValues const values(valuesOf(statement)); // only now: most look-ups end above
    auto const* plan = planOf(values);
    if (!plan) return {};
    auto row = single(values, *plan, key, version);
    space_.cache().addAll({&row, 1}, asOf_);
    requireSameTree(row->entity(), root, key);
    return row;
}

template <class Values>
RowRef SQLiteRowDecoder::decoded(Values const& values, Plan const& plan, RecordKey key, std::uint32_t version,
                                 RowBlockWriter* blocks) {
    builder_.begin(*plan.layout, key, version);
    for (auto const& [cell, column, type, place] : plan.cells) {
        if (isHeapCell(type)) {
            if (std::string_view content; values.readContent(column, type, content)) builder_.setText(cell, content);
        } else if (type == CellType::Real) {
            if (double number = 0; values.readReal(column, number)) builder_.setReal(cell, number);
        } else if (std::int64_t number = 0; values.readInteger(column, number)) {
            builder_.setInteger(cell, number);
        }
    }
    return builder_.finish(blocks);
}

/// Writes the values right into the open block; false when they do not fit there.
template <class Values>
bool SQLiteRowDecoder::packInto(RowBlockWriter::Room room, Values const& values, Plan const& plan, std::size_t& size) {
    auto const& packing = plan.layout->packing(false);
    auto* const row = room.row;
    std::memset(row + sizeof(Row), 0, packing.heap - sizeof(Row));
    auto end = packing.heap;
    for (auto const& [cell, column, type, place] : plan.cells) {
        if (isHeapCell(type)) {
            std::string_view content;
            bool const isThere = values.readContent(column, type, content);
            if (content.size() > room.size - end) return false;
            std::memcpy(row + end, content.data(), content.size());
            end += static_cast<std::uint32_t>(content.size());
            std::memcpy(row + place.offset, &end, sizeof end);
            if (!isThere) continue;
        } else if (type == CellType::Real) {
            double number = 0;
            if (!values.readReal(column, number)) continue;
            std::memcpy(row + place.offset, &number, sizeof number);
        } else {
            std::int64_t number = 0;
            if (!values.readInteger(column, number)) continue;
            if (!place.hold(row, number)) return false;
        }
        packing.setPresent(row, cell);
    }
    size = end;
    return true;
}

/// A row that stands alone.
template <class Values>
RowRef SQLiteRowDecoder::single(Values const& values, Plan const& plan, RecordKey key, std::uint32_t version) {
    alignas(Row) std::array<char, usualSize> packed;
    std::size_t size = 0;
    bool const isShort =
        plan.layout->packing(false).heap < packed.size() && packInto({packed.data(), packed.size()}, values, plan, size);
    if (!isShort) return decoded(values, plan, key, version, nullptr);
    auto row = RowBlockWriter::alone(*plan.layout, key, version, false, size);
    std::memcpy(reinterpret_cast<char*>(const_cast<Row*>(row.get())) + sizeof(Row), packed.data() + sizeof(Row),
                size - sizeof(Row));
    return row;
}

/// Packs one record after the other behind those that a list has.
template <class Values> class SQLiteRowDecoder::Filling {
public:
    Filling(SQLiteRowDecoder& decoder, std::vector<RowRef>& rows) : decoder_(decoder), rows_(rows), known_(rows.size()) {}
    Filling(Filling const&) = delete;
    Filling& operator=(Filling const&) = delete;
    ~Filling() { decoder_.blocks_.close(); }

    /// False, and nothing is added, for values that cannot be understood.
    bool add(Values const& values) {
        auto const* plan = decoder_.planOf(values);
        if (!plan) return true;
        auto const key = values.key();
        auto const version = values.version();
        auto& blocks = decoder_.blocks_;
        auto const least = plan->layout->packing(false).heap + usualText;
        std::size_t size = 0;
        if (least <= RowBlockWriter::longest && packInto(blocks.room(least), values, *plan, size)) {
            if (values.isOdd()) return false;
            rows_.push_back(blocks.commit(*plan->layout, key, version, size));
        } else {
            auto row = decoder_.decoded(values, *plan, key, version, &blocks);
            if (values.isOdd()) return false;
            rows_.push_back(std::move(row));
        }
        if (rows_.size() - known_ == run) enterIntoCache();
        return true;
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
    Filling<FedValues> filling(*this, rows);
    run(feed, statement, [&](SQLiteRowFeed::Values values) {
        FedValues const fed(values);
        if (wants(fed.key())) filling.add(fed);
    });
    return filling.finish();
}

bool SQLiteRowDecoder::readAll(SQLite::Statement& statement, std::vector<RowRef>& rows) {
    Filling<FedValues> filling(*this, rows);
    while (statement.step()) filling.add(FedValues(valuesOf(statement)));
    return filling.finish();
}

std::optional<bool> SQLiteRowDecoder::readAll(SQLite::TableWalk& walk, std::span<std::size_t const> places, RecordKey first,
                                              RecordKey last, std::vector<RowRef>& rows, Wants wants) {
    auto const before = rows.size();
    auto const lastPlace = std::ranges::max(places);
    Filling<PagedValues> filling(*this, rows);
    bool const isSound = walk.read(first, last, [&](SQLite::TableRecord const& record) {
        if (!wants(record.key())) return true;
        PagedValues const values(record, places);
        return values.isRecord(hasEntityColumn_, lastPlace) && filling.add(values);
    });
    if (isSound) return filling.finish();
    rows.resize(before);
    return {};
}

bool SQLiteRowDecoder::add(SQLite::TableRecord const& record, std::span<std::size_t const> places, std::vector<RowRef>& rows) {
    PagedValues const values(record, places);
    if (!values.isRecord(hasEntityColumn_, std::ranges::max(places))) return false;
    auto const* const plan = planOf(values);
    if (!plan) return true;
    auto row = space_.cache().find(values.key(), values.version());
    if (!row) {
        row = single(values, *plan, values.key(), values.version());
        if (values.isOdd()) return false;
        space_.cache().addAll({&row, 1}, asOf_);
    }
    requireSameTree(row->entity(), plans_.front().second.layout->entity(), row->key());
    rows.push_back(std::move(row));
    return true;
}

bool SQLiteRowDecoder::readKeys(SQLite::TableWalk& walk, std::span<std::size_t const> places, RecordKey first, RecordKey last,
                                std::vector<RecordKey>& keys) {
    auto const before = keys.size();
    bool const isSound = walk.read(first, last, [&](SQLite::TableRecord const& record) {
        PagedValues const values(record, places);
        if (hasEntityColumn_ && !values.isRecord(true, places[2])) return false;
        if (planOf(values)) keys.push_back(record.key());
        return true;
    });
    if (!isSound) keys.resize(before);
    return isSound;
}

} // namespace Tessarin
