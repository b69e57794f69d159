// Rows right from the pages of a table.
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLitePagedValuesPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteRowFillingPrivate.h"

namespace Tessarin {

std::vector<std::size_t> SQLiteRowDecoder::placesOf(std::span<std::string const> columnsOfTable) const {
    std::vector<std::size_t> places;
    for (auto const& name : names_) {
        auto const found = std::ranges::find(columnsOfTable, name.starts_with('"') ? name : quoted(name));
        if (found == columnsOfTable.end()) return {};
        places.push_back(static_cast<std::size_t>(found - columnsOfTable.begin()));
    }
    return places;
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
