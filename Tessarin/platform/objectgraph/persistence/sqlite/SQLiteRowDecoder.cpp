#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteRowFillingPrivate.h"

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
    for (auto const& name : names_) {
        (columns_ += columns_.empty() ? "t0." : ", t0.") += name;
        (valueTexts_ += valueTexts_.empty() ? "t0." : ", +t0.") += name; // the key is what they may be ordered by
    }
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

} // namespace Tessarin
