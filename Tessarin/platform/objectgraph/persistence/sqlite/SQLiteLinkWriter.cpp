#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteLinkWriterPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteKeyRunsPrivate.h"

#include <algorithm>
#include <fmt/format.h>

namespace Tessarin {

SQLiteLinkWriter::SQLiteLinkWriter(SQLite::GivenRows& given, SQLite::Connection& connection, SQLiteSchema const& schema)
    : given_(given), connection_(connection), schema_(schema), tables_(schema.links().size()) {}

void SQLiteLinkWriter::collect(RecordChange const& change) {
    for (auto const& relationship : change.relationships) {
        auto const* link = schema_.linkOf(*relationship.relationship);
        if (!link) continue;
        auto& table = tables_[static_cast<std::size_t>(link - schema_.links().data())];
        if (link->isWrittenHere) {
            auto const first = static_cast<std::ptrdiff_t>(table.added.size());
            for (auto const member : relationship.added) table.added.push_back({change.key, member});
            std::ranges::sort(table.added.begin() + first, table.added.end(), {}, &Added::member);
            for (auto const member : relationship.removed) table.removed.emplace_back(change.key, member);
        }
        if (relationship.order && !link->position.empty())
            table.ordered.push_back({change.key, *relationship.order, change.kind == RecordChange::Kind::Insert});
    }
}

void SQLiteLinkWriter::write() {
    for (std::size_t link = 0; link < tables_.size(); ++link) {
        writeRemoved(link);
        writeAdded(link);
    }
    // Positions last: those of an inverse stand in rows that the other side has just written.
    for (std::size_t link = 0; link < tables_.size(); ++link) writeOrder(link);
    forget();
}

void SQLiteLinkWriter::forget() noexcept {
    for (auto& table : tables_) {
        table.added.clear();
        table.removed.clear();
        table.ordered.clear();
    }
}

void SQLiteLinkWriter::writeRemoved(std::size_t at) {
    auto& removed = tables_[at].removed;
    if (removed.empty()) return;
    auto const statement =
        connection_.use(fmt::format("DELETE FROM {} WHERE owner = ? AND member = ?", schema_.links()[at].table));
    std::ranges::sort(removed);
    for (auto const& [owner, member] : removed) {
        statement->bind(1, owner);
        statement->bind(2, member);
        statement->run();
    }
}

// Sorted, so that they go into the table one behind another, as those of new records are already. A link that is there already was made by another process.
void SQLiteLinkWriter::writeAdded(std::size_t at) {
    auto& [added, removed, ordered, insert, given] = tables_[at];
    if (added.empty()) return;
    auto const place = [](Added const& link) { return std::pair(link.owner, link.member); };
    if (!std::ranges::is_sorted(added, {}, place)) std::ranges::sort(added, {}, place);
    auto const prepared = [&](std::unique_ptr<SQLite::Statement>& kept, std::string const& values) -> SQLite::Statement& {
        auto const& table = schema_.links()[at].table;
        if (!kept)
            kept = std::make_unique<SQLite::Statement>(connection_,
                                                       fmt::format("INSERT OR IGNORE INTO {} (owner, member) {}", table, values));
        return *kept;
    };
    if (added.size() >= SQLite::GivenRows::fewest) {
        auto& statement = prepared(given, fmt::format("SELECT c0, c1 FROM {}", SQLite::GivenRows::table));
        given_.run(statement, added.size(), [&](std::size_t link, std::size_t column, SQLite::GivenRows::Cell cell) {
            cell.give(column == 0 ? added[link].owner : added[link].member);
        });
        return;
    }
    auto& statement = prepared(insert, "VALUES (?, ?)");
    for (auto const& link : added) {
        statement.bind(1, link.owner);
        statement.bind(2, link.member);
        statement.run();
    }
}

std::vector<OrderedMember> SQLiteLinkWriter::stored(SQLiteSchema::Link const& link, Ordered const& order) {
    std::vector<OrderedMember> members;
    for (auto const member : order.members) members.push_back({member, {}});
    if (order.isNew) return members;
    std::vector<OrderedMember> present;
    auto const query = connection_.use(
        fmt::format("SELECT {}, {} FROM {} WHERE {} = ? ORDER BY 1", link.member, link.position, link.table, link.owner));
    query->bind(1, order.owner);
    while (query->step())
        if (!query->isNull(1)) present.push_back({query->integer(0), query->integer(1)});
    for (auto& member : members) {
        auto const found = std::ranges::lower_bound(present, member.member, {}, &OrderedMember::member);
        if (found != present.end() && found->member == member.member) member.position = found->position;
    }
    return members;
}

void SQLiteLinkWriter::writeOrder(std::size_t at) {
    auto const& link = schema_.links()[at];
    if (tables_[at].ordered.empty()) return;
    auto const statement = connection_.use(
        fmt::format("UPDATE {} SET {} = ? WHERE {} = ? AND {} = ?", link.table, link.position, link.owner, link.member));
    for (auto const& order : tables_[at].ordered)
        for (auto const& [member, position] : changedPositions(stored(link, order))) {
            statement->bind(1, *position);
            statement->bind(2, order.owner);
            statement->bind(3, member);
            statement->run();
        }
}

void SQLiteLinkWriter::removeAllOf(NSEntityDescription const& rootEntity, std::span<RecordKey const> keys) {
    for (auto const& link : schema_.links()) {
        if (!link.isWrittenHere) continue;
        auto const sql = fmt::format("DELETE FROM {} WHERE ", link.table);
        if (link.relationship->entity()->rootEntity() == &rootEntity) runForKeys(connection_, sql + "owner", keys);
        if (link.relationship->destinationEntity()->rootEntity() == &rootEntity) runForKeys(connection_, sql + "member", keys);
    }
}

void SQLiteLinkWriter::removeAllOf(NSEntityDescription const& rootEntity) {
    for (auto const& link : schema_.links()) {
        auto const& relationship = *link.relationship;
        bool const isOfIt =
            relationship.entity()->rootEntity() == &rootEntity || relationship.destinationEntity()->rootEntity() == &rootEntity;
        if (link.isWrittenHere && isOfIt) connection_.execute("DELETE FROM " + link.table);
    }
}

} // namespace Tessarin
