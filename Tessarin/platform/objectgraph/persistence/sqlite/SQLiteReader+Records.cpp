// Records whose keys are known, and the members of their relationships.
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteRecordWriterPrivate.h"

#include <algorithm>
#include <fmt/format.h>

namespace Tessarin {
namespace {

constexpr std::size_t manyKeys = 250; // whose pages are worth a look

std::vector<RecordKey> sorted(std::span<RecordKey const> keys) {
    std::vector<RecordKey> copy(keys.begin(), keys.end());
    if (!std::ranges::is_sorted(copy)) std::ranges::sort(copy);
    copy.erase(std::unique(copy.begin(), copy.end()), copy.end());
    return copy;
}

} // namespace

bool areDense(std::span<RecordKey const> sortedKeys) {
    if (sortedKeys.size() < 8) return false;
    return sortedKeys.back() - sortedKeys.front() < static_cast<RecordKey>(sortedKeys.size()) * 4;
}

void SQLiteReader::rows(NSEntityDescription const& rootEntity, std::span<RecordKey const> keys, FunctionRef<void(RowRef)> each) {
    auto& decoder = decoderFor(rootEntity, true);
    auto const wanted = sorted(keys);
    auto const& table = schema_.tableOf(rootEntity).name;
    std::vector<RowRef> found;
    if (wanted.size() < manyKeys && lookUp(decoder, table, wanted, found)) {
        for (auto& row : found) each(std::move(row));
        return;
    }
    if (areDense(wanted)) return readRange(decoder, table, wanted, each);
    auto const query = connection_.use(fmt::format("SELECT {} FROM {} AS t0 WHERE t0.id = ?", decoder.values(), table));
    for (auto const key : wanted) {
        query->bind(1, key);
        if (query->step())
            if (auto row = decoder.row(*query)) each(std::move(row));
        query->reset();
    }
}

/// All between the first and the last, of which some are not wanted.
void SQLiteReader::readRange(SQLiteRowDecoder& decoder, std::string const& table, std::span<RecordKey const> sortedKeys,
                             FunctionRef<void(RowRef)> each) {
    auto next = sortedKeys.begin();
    std::vector<RowRef> rows;
    rows.reserve(sortedKeys.size());
    auto const wants = [&](RecordKey key) {
        while (next != sortedKeys.end() && *next < key) ++next;
        return next != sortedKeys.end() && *next == key;
    };
    Span const span{sortedKeys.front(), sortedKeys.back()};
    if (sortedKeys.size() < manyKeys || !readPages(decoder, table, span, rows, wants)) {
        auto const query =
            connection_.use(fmt::format("SELECT {} FROM {} AS t0 WHERE t0.id BETWEEN ? AND ?", decoder.selection(), table));
        query->bind(1, span.first);
        query->bind(2, span.last);
        next = sortedKeys.begin();
        decoder.readAll(feed_, *query, rows, wants);
    }
    for (auto& row : rows) each(std::move(row));
}

void SQLiteReader::findHolders(UniqueConstraint const& constraint, std::span<RowRef const> rows,
                               std::vector<RecordKey>& holders) {
    std::string sql;
    for (auto const* property : constraint.properties)
        sql += fmt::format("{}{} = ?", sql.empty() ? "" : " AND ", schema_.columnOf(*property));
    // As the index says it: below the root, a constraint binds that entity's own tree only.
    if (constraint.entity->superentity()) sql += fmt::format(" AND entity IN ({})", schema_.numbersInTreeOf(*constraint.entity));
    auto const statement =
        connection_.use(fmt::format("SELECT id FROM {} WHERE {}", schema_.tableOf(*constraint.entity).name, sql));
    for (auto const& row : rows) {
        for (std::size_t at = 0; at < constraint.properties.size(); ++at)
            bindCell(*statement, static_cast<int>(at) + 1, *row,
                     static_cast<std::size_t>(row->layout().cellOf(constraint.properties[at]->index())));
        holders.push_back(statement->step() ? statement->integer(0) : 0);
        statement->reset();
    }
}

RowRef SQLiteReader::row(NSEntityDescription const& rootEntity, RecordKey key) {
    RowRef found;
    rows(rootEntity, {&key, 1}, [&](RowRef row) { found = std::move(row); });
    return found;
}

void SQLiteReader::members(NSRelationshipDescription const& relationship, std::span<RecordKey const> owners,
                           FunctionRef<void(RecordKey owner, RecordKey member)> each) {
    auto const* link = schema_.linkOf(relationship);
    if (!link) return;
    auto const wanted = sorted(owners);
    auto const select = fmt::format("SELECT {1}, {2} FROM {0} WHERE {1} ", link->table, link->owner, link->member);
    auto const order = link->position.empty() ? link->member : fmt::format("{}, {}", link->position, link->member);
    if (areDense(wanted) && link->position.empty()) return membersInRange(*link, wanted, each);
    if (lookUpMembers(*link, wanted, each)) return;
    if (areDense(wanted)) {
        auto const query = connection_.use(select + fmt::format("BETWEEN ? AND ? ORDER BY {}, {}", link->owner, order));
        query->bind(1, wanted.front());
        query->bind(2, wanted.back());
        for (auto next = wanted.begin(); query->step();) {
            auto const owner = query->integer(0);
            while (next != wanted.end() && *next < owner) ++next;
            if (next != wanted.end() && *next == owner) each(owner, query->integer(1));
        }
        return;
    }
    auto const query = connection_.use(select + fmt::format("= ? ORDER BY {}", order));
    for (auto const owner : wanted) {
        query->bind(1, owner);
        while (query->step()) each(owner, query->integer(1));
        query->reset();
    }
}

/// Without an order of their own: they are in that of the keys.
void SQLiteReader::membersInRange(SQLiteSchema::Link const& link, std::span<RecordKey const> sortedOwners, EachMember each) {
    auto const columns = SQLiteRowFeed::selecting(link.owner + ", " + link.member);
    auto const query =
        connection_.use(fmt::format("SELECT {} FROM {} WHERE {} BETWEEN ? AND ?", columns, link.table, link.owner));
    query->bind(1, sortedOwners.front());
    query->bind(2, sortedOwners.back());
    std::vector<std::pair<RecordKey, RecordKey>> pairs;
    feed_.run(*query, [&](SQLiteRowFeed::Values values) {
        pairs.emplace_back(SQLiteRowFeed::integer(values[0]), SQLiteRowFeed::integer(values[1]));
    });
    if (!std::ranges::is_sorted(pairs)) std::ranges::sort(pairs);
    auto next = sortedOwners.begin();
    for (auto const& [owner, member] : pairs) {
        while (next != sortedOwners.end() && *next < owner) ++next;
        if (next != sortedOwners.end() && *next == owner) each(owner, member);
    }
}

} // namespace Tessarin
