// Batch requests in SQL: one statement for all records that are meant.
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteWriterPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"

#include <algorithm>
#include <iterator>
#include <fmt/format.h>

namespace Tessarin {
namespace {

std::string listed(std::span<RecordKey const> keys) {
    std::string text = "[";
    for (auto const key : keys) fmt::format_to(std::back_inserter(text), "{}{}", text.size() == 1 ? "" : ",", key);
    return text + "]";
}

/// A record that joins an ordered relationship stands behind those that are there, with its like in the order of their keys.
std::string positionAfter(SQLiteSchema::Link const& link, RecordKey owner) {
    if (owner == 0) return fmt::format(", {} = NULL", link.position);
    return fmt::format(
        ", {0} = CASE WHEN {1} = {2} THEN {0} ELSE (SELECT coalesce(max({0}), 0) FROM {3} WHERE {1} = {2}) + id END",
        link.position, link.owner, owner, link.table);
}

char const* returned(SQLiteSchema::Table const& table) {
    return table.hasEntityColumn ? " RETURNING id, entity" : " RETURNING id";
}

} // namespace

std::optional<SQLiteReader::Selection> SQLiteWriter::selectionOf(BatchTarget const& target) const {
    if (!target.keys) return reader_.selectionOf(target.query);
    auto const ofEntity =
        StoreQuery{.entity = target.query.entity, .includesSubentities = target.query.includesSubentities, .sortDescriptors = {}};
    auto selection = reader_.selectionOf(ofEntity);
    selection->condition += selection->condition.empty() ? " WHERE " : " AND ";
    selection->condition += "t0.id IN (SELECT value FROM json_each(?))";
    selection->arguments.push_back(listed(*target.keys));
    return selection;
}

std::vector<RecordKey> SQLiteWriter::byKeys(NSEntityDescription const& entity, SQLiteReader::Selection& selection) {
    std::vector<RecordKey> keys;
    {
        SQLite::Statement statement(
            connection_, fmt::format("SELECT t0.id FROM {} AS t0{}", schema_.tableOf(entity).name, selection.condition));
        bindAll(statement, selection.arguments);
        while (statement.step()) keys.push_back(statement.integer(0));
    }
    std::ranges::sort(keys);
    selection = {" WHERE t0.id IN (SELECT value FROM json_each(?))", List{Value(listed(keys))}};
    return keys;
}

/// A mandatory attribute may not take over from one that is absent.
void SQLiteWriter::requireSources(BatchTarget const& target, std::span<BatchAssignment const> assignments,
                                  SQLiteReader::Selection const& selection) {
    auto const* const word = selection.condition.empty() ? " WHERE " : " AND ";
    for (auto const& [property, value, reference, source] : assignments) {
        if (!source || property->isOptional()) continue;
        SQLite::Statement statement(connection_, fmt::format("SELECT 1 FROM {} AS t0{}{}t0.{} IS NULL LIMIT 1",
                                                             schema_.tableOf(*target.query.entity).name, selection.condition,
                                                             word, schema_.columnOf(*source)));
        bindAll(statement, selection.arguments);
        if (statement.step()) throw ErrorException(property->asAttribute()->validate({}));
    }
}

bool SQLiteWriter::update(BatchTarget const& target, std::span<BatchAssignment const> assignments, BatchOutcome& outcome) {
    auto const& entity = *target.query.entity;
    auto selection = selectionOf(target);
    if (!selection) return false;
    dangling_.forget(); // what the last save told it
    history_.begin(target.origin);
    HistoryPacker::Mask mask;
    requireSources(target, assignments, *selection);
    bool const changesWords =
        std::ranges::any_of(assignments, [&](auto const& each) { return search_.concerns(*each.property); });
    auto const searched = changesWords ? byKeys(entity, *selection) : std::vector<RecordKey>();
    RowBuilder builder; // brings values into the form in which they are kept
    auto const& layout = schema_.space().layoutOf(entity);
    builder.begin(layout, 0, 0);
    std::vector<std::size_t> bound;
    std::string sets = "version = version + 1";
    for (auto const& [property, value, reference, source] : assignments) {
        auto const& column = schema_.columnOf(*property);
        HistoryPacker::mark(mask, property->index());
        sets += fmt::format(", {} = {}", column, source ? "t0." + schema_.columnOf(*source) : "?");
        if (source) continue;
        auto const cell = static_cast<std::size_t>(layout.cellOf(property->index()));
        bound.push_back(cell);
        auto const* relationship = property->asRelationship();
        if (!relationship) {
            builder.setValue(cell, value);
            continue;
        }
        auto const destination = reference == 0 ? RowRef() : stored(*relationship->destinationEntity(), reference);
        if (reference != 0 && (!destination || !destination->entity().isKindOf(relationship->destinationEntity())))
            throw ErrorException(missingDestination(*relationship, reference));
        builder.setReference(cell, reference);
        auto const* link = relationship->isReciprocal() ? schema_.linkOf(*relationship->inverseRelationship()) : nullptr;
        if (link && !link->position.empty()) sets += positionAfter(*link, reference);
    }
    auto const row = builder.finish();
    auto const& table = schema_.tableOf(entity);
    // Records whose rows somebody may hold have to be named too. Gathering the names costs a quarter of the statement.
    bool const names = target.names != BatchTarget::Names::None || schema_.space().cache().size() > 0;
    SQLite::Statement statement(connection_, fmt::format("UPDATE {} AS t0 SET {}{}{}", table.name, sets, selection->condition,
                                                         names ? returned(table) : ""));
    for (int at = 0; at < static_cast<int>(bound.size()); ++at)
        bindCell(statement, at + 1, *row, bound[static_cast<std::size_t>(at)]);
    bindAll(statement, selection->arguments, static_cast<int>(bound.size()));
    search_.takeOut(entity, searched);
    runBatch(statement, entity, outcome);
    if (names)
        history_.addRecords(HistoryChange::Kind::Updated, outcome.records, mask);
    else if (outcome.count > 0)
        history_.addTable(HistoryChange::Kind::Updated, entity, mask);
    history_.end();
    search_.putIn(entity, searched);
    return true;
}

bool SQLiteWriter::remove(std::span<BatchTarget const> targets, BatchOutcome& outcome) {
    std::vector<SQLiteReader::Selection> selections;
    for (auto const& target : targets) {
        auto selection = selectionOf(target);
        if (!selection) return false;
        selections.push_back(std::move(*selection));
    }
    dangling_.forget();
    history_.begin(targets.empty() ? nullptr : targets.front().origin);
    std::vector<NSEntityDescription const*> emptied;
    for (std::size_t at = 0; at < targets.size(); ++at) {
        auto const& entity = *targets[at].query.entity;
        auto const& table = schema_.tableOf(entity);
        noteDeletionsOf(targets[at], selections[at]);
        if (selections[at].condition.empty() && targets[at].names != BatchTarget::Names::Records) {
            if (targets[at].names == BatchTarget::Names::Runs) {
                auto const before = outcome.runs.size();
                nameRuns(entity, outcome);
                history_.addRuns(std::span(outcome.runs).subspan(before));
            } else {
                history_.addTable(HistoryChange::Kind::Deleted, *entity.rootEntity());
            }
            removeAll(entity, outcome);
            emptied.push_back(entity.rootEntity());
            continue;
        }
        auto const before = outcome.records.size();
        if (search_.isOver(entity)) search_.takeOut(entity, byKeys(entity, selections[at]));
        SQLite::Statement statement(
            connection_, fmt::format("DELETE FROM {} AS t0{}{}", table.name, selections[at].condition, returned(table)));
        bindAll(statement, selections[at].arguments);
        runBatch(statement, entity, outcome);
        history_.addRecords(HistoryChange::Kind::Deleted, std::span(outcome.records).subspan(before));
        std::vector<RecordKey> keys;
        for (auto const& record : std::span(outcome.records).subspan(before)) keys.push_back(record.key);
        std::ranges::sort(keys);
        dangling_.cutAllTo(*entity.rootEntity(), std::move(keys));
    }
    for (auto const* entity : emptied) {
        dangling_.cutAllTo(*entity); // at last: what is emptied, too, has no links to be cut
        dangling_.forReferencesTo(*entity, [&](auto const& property) {
            HistoryPacker::Mask mask;
            HistoryPacker::mark(mask, property.index());
            history_.addTable(HistoryChange::Kind::Updated, *property.entity(), mask);
        });
    }
    endHistory();
    return true;
}

/// What the history keeps of them costs a look at each.
void SQLiteWriter::noteDeletionsOf(BatchTarget const& target, SQLiteReader::Selection const& selection) {
    auto const& root = *target.query.entity->rootEntity();
    if (!history_.keepsValues(root)) return;
    std::vector<RecordKey> keys;
    SQLite::Statement statement(connection_,
                                fmt::format("SELECT t0.id FROM {} AS t0{}", schema_.tableOf(root).name, selection.condition));
    bindAll(statement, selection.arguments);
    while (statement.step()) keys.push_back(statement.integer(0));
    history_.noteDeletions(root, keys);
}

void SQLiteWriter::nameRuns(NSEntityDescription const& entity, BatchOutcome& outcome) {
    auto const& table = schema_.tableOf(entity);
    SQLite::Statement statement(
        connection_, fmt::format("SELECT id{} FROM {} ORDER BY id", table.hasEntityColumn ? ", entity" : "", table.name));
    while (statement.step()) {
        auto const* own = table.hasEntityColumn ? schema_.entityNumbered(statement.integer(1)) : nullptr;
        addToRuns(outcome.runs, own ? *own : entity, statement.integer(0));
    }
}

/// Without a condition SQLite frees a table page by page, and does not look at its records.
void SQLiteWriter::removeAll(NSEntityDescription const& entity, BatchOutcome& outcome) {
    search_.takeOutAll(entity);
    SQLite::Statement statement(connection_, "DELETE FROM " + schema_.tableOf(entity).name);
    runBatch(statement, entity, outcome);
}

void SQLiteWriter::runBatch(SQLite::Statement& statement, NSEntityDescription const& entity, BatchOutcome& outcome) {
    auto const before = outcome.records.size();
    bool const isNamed = statement.columnCount() > 0, tellsEntity = statement.columnCount() > 1;
    try {
        while (statement.step()) {
            auto const* own = tellsEntity ? schema_.entityNumbered(statement.integer(1)) : &entity;
            outcome.records.push_back({own ? own : &entity, statement.integer(0)});
        }
    } catch (SQLite::Failure const& failure) {
        explain(failure);
    }
    outcome.count += isNamed ? outcome.records.size() - before : connection_.changedRows();
}

void SQLiteWriter::forgetRows(BatchOutcome const& outcome) {
    auto& cache = schema_.space().cache();
    if (outcome.records.size() < outcome.count) cache.removeAll(); // it was empty, and holds what was fetched meanwhile
    for (auto const& record : outcome.records) cache.remove(record.key);
    for (auto const& cut : dangling_.changed()) cache.remove(cut.key);
    cache.endCommit();
}

} // namespace Tessarin
