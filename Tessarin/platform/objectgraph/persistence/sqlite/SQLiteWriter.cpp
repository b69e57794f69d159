#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteWriterPrivate.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteKeyRunsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sqlite3.h>

#include <algorithm>

namespace Tessarin {
namespace {

using Kind = RecordChange::Kind;

// From here on it is cheaper to fill an empty table first and to make its indexes afterwards: 1.4 times for 100,000 rows.
constexpr std::size_t manyRows = 1000;

} // namespace

SQLiteWriter::SQLiteWriter(SQLiteSchema const& schema, SQLite::Connection& connection, std::int64_t historyWriter)
    : schema_(schema),
      connection_(connection),
      reader_(schema, connection),
      given_(connection),
      links_(given_, connection, schema),
      dangling_(connection, schema, links_),
      history_(schema, connection, reader_, historyWriter),
      search_(connection, schema),
      writers_(schema.space().model().entities().size()) {}

SQLiteRecordWriter& SQLiteWriter::writerOf(NSEntityDescription const& entity) {
    auto& writer = writers_[entity.index()];
    if (!writer) writer = std::make_unique<SQLiteRecordWriter>(given_, connection_, schema_, entity);
    return *writer;
}

void SQLiteWriter::write(std::span<Ref<ChangeSet const> const> sets, Conflicts conflicts) {
    conflicts_ = conflicts;
    dropped_.clear();
    deleted_.clear();
    links_.forget();
    dangling_.forget();
    history_.begin();
    try {
        for (auto const& set : sets) {
            history_.add(*set);
            writeSet(*set);
        }
        remakeIndexes();
        dangling_.cut();
        endHistory();
    } catch (SQLite::Failure const& failure) {
        explain(failure);
    }
}

void SQLiteWriter::endHistory() {
    for (auto const& [entity, key, property] : dangling_.changed()) history_.addCut(key, *property);
    history_.end();
}

// Deletions first: what they free (a unique name) may be taken by an update, and that by an insertion.
void SQLiteWriter::writeSet(ChangeSet const& set) {
    dropIndexesBefore(set);
    removeLinksOfThoseBack(set);
    writeDeletions(set);
    writeUpdates(set);
    insertAll(set);
    for (std::size_t at = 0; at < schema_.links().size(); ++at)
        if (links_.waiting(at) >= manyRows) dropIndexesOf(schema_.links()[at].table);
    links_.write();
}

/// A record that was deleted by a set before this one, and that this one brings back, has the links that this one says.
void SQLiteWriter::removeLinksOfThoseBack(ChangeSet const& set) {
    if (deleted_.empty()) return;
    std::ranges::sort(deleted_);
    for (auto const& table : schema_.tables()) {
        std::vector<RecordKey> keys;
        for (auto const& change : set.changesOf(*table.root))
            if (change.kind == Kind::Insert && std::ranges::binary_search(deleted_, change.key)) keys.push_back(change.key);
        if (!keys.empty()) links_.removeAllOf(*table.root, keys);
    }
}

/// Those of one entity, which follow one another, at once.
void SQLiteWriter::insertAll(ChangeSet const& set) {
    NSEntityDescription const* entity = nullptr;
    std::vector<Row const*> rows;
    for (auto const& change : set.changes()) {
        if (change.kind != Kind::Insert) continue;
        static_cast<void>(versionFrom(change.after->key(), change.after->version())); // no other key is ever read again
        if (change.entity != entity && entity) insert(*entity, std::exchange(rows, {}));
        entity = change.entity;
        rows.push_back(change.after.get());
    }
    if (entity) insert(*entity, rows);
    for (auto const& change : set.changes()) {
        if (change.kind != Kind::Insert) continue;
        search_.insert(*change.after);
        dangling_.note(change);
        if (!change.relationships.empty()) links_.collect(change);
    }
}

void SQLiteWriter::insert(NSEntityDescription const& entity, std::span<Row const* const> rows) {
    try {
        writerOf(entity).insert(rows);
    } catch (SQLite::Failure const& failure) { // somebody else, too, has brought a deleted record back
        if (failure.code() != SQLITE_CONSTRAINT_PRIMARYKEY || conflicts_ == Conflicts::Settled) throw;
        throw Stale{};
    }
}

/// Versions only grow, so one sum tells whether any of the records was changed, or is gone.
void SQLiteWriter::checkVersions(std::string const& table, std::span<RecordChange const> changes) {
    std::vector<RecordKey> keys;
    std::int64_t expected = 0;
    for (auto const& change : changes) {
        if (change.kind != Kind::Delete || !change.before) continue;
        keys.push_back(change.key);
        expected += change.before->version();
    }
    std::int64_t found = 0;
    auto const sql = fmt::format("SELECT count(*), sum(version) FROM {} WHERE id", table);
    forKeys(connection_, sql, keys, [&](SQLite::Statement& statement) {
        statement.step();
        expected -= statement.integer(1);
        found += statement.integer(0);
    });
    if (expected != 0 || found != static_cast<std::int64_t>(keys.size())) throw Stale{};
}

void SQLiteWriter::writeDeletions(ChangeSet const& set) {
    for (auto const& table : schema_.tables()) {
        std::vector<RecordKey> keys;
        for (auto const& change : set.changesOf(*table.root))
            if (change.kind == Kind::Delete) keys.push_back(change.key);
        if (keys.empty()) continue;
        if (conflicts_ == Conflicts::Noticed) checkVersions(table.name, set.changesOf(*table.root));
        dangling_.noteDeleted(*table.root, keys);
        history_.noteDeletions(*table.root, keys);
        search_.takeOut(*table.root, keys);
        deleted_.insert(deleted_.end(), keys.begin(), keys.end());
        runForKeys(connection_, fmt::format("DELETE FROM {} WHERE id", table.name), keys);
    }
}

// Two records may exchange values that must be unique: those that met a conflict first give theirs up, then take the new ones.
void SQLiteWriter::writeUpdates(ChangeSet const& set) {
    std::vector<RecordChange const*> again;
    for (auto const& change : set.changes()) {
        if (change.kind != Kind::Update) continue;
        try {
            update(change);
        } catch (SQLite::Failure const& failure) {
            if (failure.code() != SQLITE_CONSTRAINT_UNIQUE) throw;
            again.push_back(&change);
        }
    }
    for (auto const* change : again) giveUpUniqueValues(*change);
    for (auto const* change : again) update(*change);
}

/// Those only that it takes others for: what stays as it is would not be written again.
void SQLiteWriter::giveUpUniqueValues(RecordChange const& change) {
    auto const& table = schema_.tableOf(*change.entity).name;
    auto const cells = change.before->layout().cells();
    std::string given;
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        if (change.after->cellEquals(cell, *change.before)) continue;
        bool const isUnique = std::ranges::any_of(schema_.indexes(), [&](SQLiteSchema::Index const& index) {
            return index.isUnique && index.table == table &&
                   std::ranges::find(index.properties, cells[cell].property) != index.properties.end();
        });
        if (isUnique) given += (given.empty() ? "" : ", ") + schema_.columnOf(*cells[cell].property) + " = NULL";
    }
    if (given.empty()) return;
    auto const statement = connection_.use(fmt::format("UPDATE {} SET {} WHERE id = ? AND version = ?", table, given));
    statement->bind(1, change.key);
    statement->bind(2, std::int64_t{change.before->version()});
    statement->run();
}

void SQLiteWriter::update(RecordChange const& change) {
    if (change.after != change.before && !writerOf(*change.entity).update(*change.before, *change.after)) {
        if (conflicts_ == Conflicts::Noticed) throw Stale{};
        return; // made on a record that an ancestor never saved
    }
    if (change.after != change.before) search_.update(*change.before, *change.after);
    dangling_.note(change);
    if (!change.relationships.empty()) links_.collect(change);
}

void SQLiteWriter::dropIndexesBefore(ChangeSet const& set) {
    for (auto const& table : schema_.tables()) {
        auto const changes = set.changesOf(*table.root);
        if (changes.size() < manyRows) continue;
        auto const insertions = std::ranges::count(changes, Kind::Insert, &RecordChange::kind);
        if (static_cast<std::size_t>(insertions) >= manyRows) dropIndexesOf(table.name);
    }
}

void SQLiteWriter::dropIndexesOf(std::string const& table) {
    if (connection_.use(fmt::format("SELECT 1 FROM {} LIMIT 1", table))->step()) return;
    for (auto const& index : schema_.indexes()) {
        if (index.table != table || std::ranges::find(dropped_, &index) != dropped_.end()) continue;
        connection_.execute("DROP INDEX IF EXISTS " + index.name);
        dropped_.push_back(&index);
    }
}

void SQLiteWriter::remakeIndexes() {
    for (auto const* index : dropped_) connection_.execute(index->statement);
    dropped_.clear();
}

void SQLiteWriter::publish(std::span<Ref<ChangeSet const> const> sets, SaveOutcome& outcome) {
    auto& cache = schema_.space().cache();
    for (auto const& set : sets)
        for (auto const& change : set->changes()) {
            if (change.kind == Kind::Delete)
                cache.remove(change.key);
            else if (change.after != change.before)
                cache.add(change.after);
        }
    for (auto const& change : outcome.corrected)
        if (!change.after) cache.remove(change.key);
    cache.endCommit();
    dangling_.tell(reader_, sets, outcome);
}

/// A uniqueness violation is told in the model's words; any other failure goes on as it is.
void SQLiteWriter::explain(SQLite::Failure const& failure) const {
    if (failure.code() != SQLITE_CONSTRAINT_UNIQUE) throw failure;
    for (auto const& index : schema_.indexes()) {
        if (!index.isUnique) continue;
        std::string columns;
        for (auto const& column : index.columns)
            columns += fmt::format("{}{}.{}", columns.empty() ? "" : ", ", unquoted(index.table), unquoted(column));
        if (!failure.message().ends_with(": " + columns)) continue;
        List names;
        std::string text;
        for (auto const* property : index.properties) {
            names.push_back(property->name());
            text += (text.empty() ? "" : ", ") + property->name();
        }
        throw ErrorException(storeError(StoreErrorCode::ConstraintConflict,
                                        fmt::format("{}: another record has the same {}", index.entity->name(), text),
                                        {{"entity", Value(index.entity->name())}, {"attributes", Value(std::move(names))}}));
    }
    throw failure;
}

} // namespace Tessarin
