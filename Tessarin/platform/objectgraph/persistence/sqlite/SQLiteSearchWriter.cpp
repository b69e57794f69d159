// What FTS5 is told with each change: of an index over another table it must hear the words that go as well as those that come.
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteKeyRunsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSearchTablesPrivate.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace Tessarin {

SQLiteSearchWriter::SQLiteSearchWriter(SQLite::Connection& connection, SQLiteSchema const& schema)
    : connection_(connection), schema_(schema), words_(schema.space().model().entities().size()) {}

bool SQLiteSearchWriter::concerns(NSPropertyDescription const& property) const noexcept {
    auto const* attribute = property.asAttribute();
    return attribute && attribute->isFullText() && isOver(*property.entity());
}

SQLiteSearchWriter::Words const& SQLiteSearchWriter::wordsOf(NSEntityDescription const& entity) {
    auto& words = words_[entity.index()];
    if (words) return *words;
    words.emplace(schema_.searchOf(entity));
    auto const cells = schema_.space().layoutOf(entity).cells();
    if (words->search)
        for (auto const* attribute : words->search->attributes) {
            auto const cell = std::ranges::find(cells, attribute, &RowLayout::Cell::property);
            words->cells.push_back(cell == cells.end() ? -1 : static_cast<int>(cell - cells.begin()));
        }
    return *words;
}

void SQLiteSearchWriter::run(SQLiteSchema::Search const& search, bool isDeletion, Row const& row, std::vector<int> const& cells) {
    auto const statement = connection_.use(isDeletion ? search.deletion : search.insertion);
    statement->bind(1, row.key());
    for (std::size_t at = 0; at < cells.size(); ++at) {
        auto const place = static_cast<int>(at) + 2;
        cells[at] < 0 ? statement->bindNull(place) : bindCell(*statement, place, row, static_cast<std::size_t>(cells[at]));
    }
    statement->run();
}

void SQLiteSearchWriter::insert(Row const& row) {
    auto const& [search, cells] = wordsOf(row.entity());
    if (search) run(*search, false, row, cells);
}

void SQLiteSearchWriter::update(Row const& before, Row const& after) {
    auto const& [search, cells] = wordsOf(after.entity());
    auto const isSame = [&](int cell) { return cell < 0 || after.cellEquals(static_cast<std::size_t>(cell), before); };
    if (!search || std::ranges::all_of(cells, isSame)) return;
    run(*search, true, before, cells);
    run(*search, false, after, cells);
}

void SQLiteSearchWriter::takeOut(NSEntityDescription const& entity, std::span<RecordKey const> keys) {
    if (auto const* search = schema_.searchOf(entity))
        runForKeys(connection_,
                   fmt::format("INSERT INTO {0} ({0}, rowid, {1}) SELECT 'delete', id, {1} FROM {2} WHERE id", search->name,
                               fmt::join(search->columns, ", "), schema_.tableOf(entity).name),
                   keys);
}

void SQLiteSearchWriter::putIn(NSEntityDescription const& entity, std::span<RecordKey const> keys) {
    if (auto const* search = schema_.searchOf(entity))
        runForKeys(connection_,
                   fmt::format("INSERT INTO {0} (rowid, {1}) SELECT id, {1} FROM {2} WHERE id", search->name,
                               fmt::join(search->columns, ", "), schema_.tableOf(entity).name),
                   keys);
}

void SQLiteSearchWriter::takeOutAll(NSEntityDescription const& entity) {
    if (auto const* search = schema_.searchOf(entity))
        connection_.execute(fmt::format("INSERT INTO {0} ({0}) VALUES ('delete-all')", search->name));
}

} // namespace Tessarin
