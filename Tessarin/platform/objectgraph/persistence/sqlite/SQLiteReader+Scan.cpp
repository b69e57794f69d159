// Tables read from one end to the other.
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderSmallCachePrivate.h"
#include "Tessarin/platform/objectgraph/query/SQLTranslationPrivate.h"
#include "Tessarin/platform/sqlite/StatementLog.h"

namespace Tessarin {

SQLiteReader::Scan::Scan(SQLiteReader& reader, Scanned const& scanned)
    : reader_(reader),
      scanned_(scanned),
      decoder_(reader.decoderFor(*scanned.entity, scanned.includesSubentities)),
      pages_(SQLite::SnapshotPages::of(reader.connection_)) {
    if (pages_) lookAtTable();
}

SQLiteReader::Scan::~Scan() = default;

std::string const& SQLiteReader::Scan::table() const { return reader_.schema_.tableOf(*scanned_.entity).name; }

/// Leaves the pages to SQLite where the table has columns that are not in its records, or that older records have without holding.
void SQLiteReader::Scan::lookAtTable() {
    auto& connection = reader_.connection_;
    auto const name = unquoted(table());
    std::vector<std::string> columns;
    auto const shape = connection.use("SELECT name, hidden, dflt_value FROM pragma_table_xinfo(?)");
    shape->bind(1, name);
    while (shape->step()) {
        if (shape->integer(1) != 0 || !shape->isNull(2)) return;
        columns.push_back(quoted(shape->text(0)));
    }
    auto const root = connection.use("SELECT rootpage FROM sqlite_schema WHERE type = 'table' AND name = ? COLLATE NOCASE");
    root->bind(1, name);
    places_ = decoder_.placesOf(columns);
    if (!places_.empty() && root->step()) walk_.emplace(*pages_, static_cast<SQLite::SnapshotPages::Number>(root->integer(0)));
}

bool SQLiteReader::Scan::read(Span span, std::vector<RowRef>& rows) {
    if (!walk_) return readByStatement(span, rows);
    auto const start = std::chrono::steady_clock::now();
    auto const before = rows.size();
    auto const areNew = decoder_.readAll(*walk_, places_, span.first, span.last, rows);
    if (auto* const log = reader_.connection_.log()) log->note("pages of " + table(), start, rows.size() - before);
    if (areNew) return *areNew;
    walk_.reset(); // what is odd is mostly so in many places
    return readByStatement(span, rows);
}

bool SQLiteReader::Scan::readByStatement(Span span, std::vector<RowRef>& rows) {
    if (!smallCache_) smallCache_ = std::make_unique<SmallCache>(reader_.connection_);
    auto const condition = reader_.conditionOf(scanned_, SQLTranslation(reader_.schema_, *scanned_.entity));
    auto const statement =
        reader_.connection_.use(fmt::format("SELECT {} FROM {} AS t0{}t0.id BETWEEN ? AND ?", decoder_.selection(), table(),
                                            condition.empty() ? " WHERE " : condition + " AND "));
    statement->bind(1, span.first);
    statement->bind(2, span.last);
    return decoder_.readAll(reader_.feed_, *statement, rows);
}

} // namespace Tessarin
