#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteDanglingLinksPrivate.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/rows/CutMembersPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteKeyRunsPrivate.h"

#include <algorithm>
#include <iterator>
#include <fmt/format.h>

namespace Tessarin {
namespace {

void sortOnce(std::vector<RecordKey>& keys) {
    std::ranges::sort(keys);
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
}

} // namespace

SQLiteDanglingLinks::SQLiteDanglingLinks(SQLite::Connection& connection, SQLiteSchema const& schema, SQLiteLinkWriter& links)
    : connection_(connection),
      schema_(schema),
      links_(links),
      tables_(schema.tables().size()),
      references_(schema.space().model().entities().size()) {
    for (auto const& table : schema.tables())
        for (auto const& column : table.columns) {
            auto const* relationship = column.property ? column.property->asRelationship() : nullptr;
            if (!relationship) continue;
            auto& target = tables_[tableOf(*relationship->destinationEntity())];
            target.references.push_back(&column);
            target.referring.push_back(&table);
        }
}

std::size_t SQLiteDanglingLinks::tableOf(NSEntityDescription const& entity) const {
    return static_cast<std::size_t>(&schema_.tableOf(entity) - schema_.tables().data());
}

void SQLiteDanglingLinks::forget() {
    for (auto& table : tables_) {
        table.targets.clear();
        table.deleted.clear();
        table.missing.clear();
        table.isReferredInVain = false;
        table.recent.fill(0);
    }
    changed_.clear();
    linkedOnly_.clear();
}

std::vector<SQLiteDanglingLinks::Reference> const& SQLiteDanglingLinks::referencesOf(RowLayout const& layout) {
    auto& found = references_[layout.entity().index()];
    if (found) return *found;
    found.emplace();
    for (std::size_t cell = 0; cell < layout.cells().size(); ++cell)
        if (auto const* relationship = layout.cells()[cell].property->asRelationship())
            found->push_back({cell, tableOf(*relationship->destinationEntity())});
    return *found;
}

void SQLiteDanglingLinks::noteTarget(Table& table, RecordKey key) {
    auto& recent = table.recent[static_cast<std::size_t>(key) % table.recent.size()];
    if (recent == key) return;
    recent = key;
    table.targets.push_back(key);
}

void SQLiteDanglingLinks::note(RecordChange const& change) {
    if (change.after != change.before)
        for (auto const [cell, table] : referencesOf(change.after->layout()))
            if (change.after->isPresent(cell) && !(change.before && change.after->cellEquals(cell, *change.before)))
                noteTarget(tables_[table], change.after->reference(cell));
    for (auto const& each : change.relationships) {
        auto const* link = schema_.linkOf(*each.relationship);
        if (!link || !link->isWrittenHere || each.added.empty()) continue;
        if (change.after == change.before) {
            noteTarget(tables_[tableOf(*change.entity)], change.key);
            linkedOnly_.emplace_back(change.entity, change.key);
        }
        auto& table = tables_[tableOf(*each.relationship->destinationEntity())];
        for (auto const member : each.added) noteTarget(table, member);
    }
}

void SQLiteDanglingLinks::noteDeleted(NSEntityDescription const& rootEntity, std::span<RecordKey const> keys) {
    auto& deleted = tables_[tableOf(rootEntity)].deleted;
    deleted.insert(deleted.end(), keys.begin(), keys.end());
}

void SQLiteDanglingLinks::findMissing(std::size_t at) {
    auto& [targets, deleted, missing, isReferredInVain, recent, references, referring] = tables_[at];
    sortOnce(targets);
    sortOnce(deleted);
    std::vector<RecordKey> asked, present;
    std::ranges::set_union(targets, deleted, std::back_inserter(asked));
    auto const sql = fmt::format("SELECT id FROM {} WHERE id", schema_.tables()[at].name);
    auto const read = [&](SQLite::Statement& statement) {
        while (statement.step()) present.push_back(statement.integer(0));
    };
    forKeys(connection_, sql, asked, read);
    std::ranges::sort(present);
    std::ranges::set_difference(asked, present, std::back_inserter(missing));
    isReferredInVain = !std::ranges::includes(present, targets);
}

void SQLiteDanglingLinks::cutReferences(Table const& table) {
    for (std::size_t at = 0; at < table.references.size(); ++at) {
        auto const& [property, column, type] = *table.references[at];
        auto const& in = *table.referring[at];
        std::vector<RecordKey> keys;
        forKeys(connection_, fmt::format("SELECT id FROM {} WHERE {}", in.name, column), table.missing,
                [&](SQLite::Statement& statement) {
                    while (statement.step()) keys.push_back(statement.integer(0));
                });
        if (keys.empty()) continue;
        std::ranges::sort(keys);
        runForKeys(connection_, fmt::format("UPDATE {0} SET {1} = NULL, version = version + 1 WHERE id", in.name, column), keys);
        for (auto const key : keys) changed_.push_back({in.root, key, property});
    }
}

void SQLiteDanglingLinks::cut() {
    for (std::size_t at = 0; at < tables_.size(); ++at) {
        if (tables_[at].targets.empty() && tables_[at].deleted.empty()) continue;
        findMissing(at);
        if (tables_[at].missing.empty()) continue;
        links_.removeAllOf(*schema_.tables()[at].root, tables_[at].missing);
        cutReferences(tables_[at]);
    }
}

void SQLiteDanglingLinks::cutAllTo(NSEntityDescription const& rootEntity, std::vector<RecordKey> keys) {
    auto& table = tables_[tableOf(rootEntity)];
    table.missing = std::move(keys);
    links_.removeAllOf(rootEntity, table.missing);
    cutReferences(table);
}

void SQLiteDanglingLinks::cutAllTo(NSEntityDescription const& rootEntity) {
    links_.removeAllOf(rootEntity);
    auto const& table = tables_[tableOf(rootEntity)];
    for (std::size_t at = 0; at < table.references.size(); ++at) {
        auto const& in = *table.referring[at];
        if (in.root != &rootEntity)
            connection_.execute(fmt::format("UPDATE {0} SET {1} = NULL, version = version + 1 WHERE {1} IS NOT NULL", in.name,
                                            table.references[at]->name));
    }
}

void SQLiteDanglingLinks::forReferencesTo(NSEntityDescription const& rootEntity,
                                          FunctionRef<void(NSPropertyDescription const& property)> each) const {
    for (auto const* column : tables_[tableOf(rootEntity)].references) each(*column->property);
}

bool SQLiteDanglingLinks::isMissing(NSEntityDescription const& entity, RecordKey key) const {
    return std::ranges::binary_search(tables_[tableOf(entity)].missing, key);
}

void SQLiteDanglingLinks::tell(SQLiteReader& reader, std::span<Ref<ChangeSet const> const> sets, SaveOutcome& outcome) const {
    for (auto const& [entity, key] : linkedOnly_)
        if (isMissing(*entity, key))
            outcome.corrected.push_back({.kind = RecordChange::Kind::Delete, .key = key, .entity = entity});
    for (auto const& [rootEntity, key, property] : changed_) {
        auto row = reader.row(*rootEntity, key);
        if (!row) continue;
        std::erase_if(outcome.corrected, [&, changed = key](RecordChange const& change) { return change.key == changed; });
        auto const* entity = &row->entity();
        outcome.corrected.push_back({.kind = RecordChange::Kind::Update,
                                     .key = key,
                                     .entity = entity,
                                     .before = {},
                                     .after = std::move(row),
                                     .relationships = {}});
    }
    if (std::ranges::any_of(tables_, &Table::isReferredInVain))
        addCutMembers(
            sets, [this](auto const& entity, RecordKey key) { return isMissing(entity, key); }, outcome);
}

} // namespace Tessarin
