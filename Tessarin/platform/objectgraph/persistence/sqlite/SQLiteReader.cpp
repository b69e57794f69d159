#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderSmallCachePrivate.h"

#include "Tessarin/platform/objectgraph/query/SQLFunctionsPrivate.h"
#include "Tessarin/platform/objectgraph/query/SQLTranslationPrivate.h"
#include "Tessarin/platform/sqlite/Interruption.h"

#include <algorithm>
#include <fmt/format.h>
#include <functional>
#include <unordered_map>

namespace Tessarin {
namespace {

constexpr RecordKey fewest = 250; // keys of a span whose pages are worth a look

/// Conditions for records in these ranges: the longest as such, the others as a list of keys.
void addRanges(std::span<KeyRange const> ranges, std::string& condition, List& arguments) {
    static constexpr std::size_t mostRanges = 100;
    std::vector<KeyRange> sorted(ranges.begin(), ranges.end());
    std::ranges::stable_sort(sorted, std::ranges::greater(), [](KeyRange const& range) { return range.last - range.first; });
    std::string keys;
    for (std::size_t at = 0; at < sorted.size(); ++at) {
        if (at < mostRanges) {
            condition += at == 0 ? "t0.id BETWEEN ? AND ?" : " OR t0.id BETWEEN ? AND ?";
            arguments.push_back(sorted[at].first);
            arguments.push_back(sorted[at].last);
            continue;
        }
        for (auto key = sorted[at].first; key <= sorted[at].last; ++key)
            fmt::format_to(std::back_inserter(keys), "{}{}", keys.empty() ? "[" : ",", key);
    }
    if (keys.empty()) return;
    condition += " OR t0.id IN (SELECT value FROM json_each(?))";
    arguments.push_back(keys + "]");
}

/// Empty for a condition that says more, or something else.
std::string columnOfEquality(SQLTranslation const& translation) {
    auto const condition = translation.condition();
    static constexpr std::string_view table = "t0.", equality = " = ?";
    bool const isPlain = condition.starts_with(table) && condition.ends_with(equality) && translation.arguments().size() == 1;
    if (!isPlain || !translation.joins().empty() || !translation.source().empty()) return {};
    return condition.substr(table.size(), condition.size() - table.size() - equality.size());
}

template <class List, class Key> void sortByKey(List& list, Key key) {
    if (!std::ranges::is_sorted(list, {}, key)) std::ranges::sort(list, {}, key);
}

/// SQLite takes a negative limit for none, and a negative offset for 0.
std::int64_t limitIn(StoreQuery const& query) {
    return query.limit == 0 ? -1 : static_cast<std::int64_t>(std::min<std::size_t>(query.limit, INT64_MAX));
}
std::int64_t offsetIn(StoreQuery const& query) {
    return static_cast<std::int64_t>(std::min<std::size_t>(query.offset, INT64_MAX));
}

} // namespace

SQLiteReader::SQLiteReader(SQLiteSchema const& schema, SQLite::Connection& connection)
    : schema_(schema), connection_(connection), feed_(connection), paged_(connection), known_(schema, connection) {
    registerSQLFunctions(connection);
}

void bindAll(SQLite::Statement& statement, std::span<Value const> arguments, int before) {
    int at = before;
    for (auto const& argument : arguments) {
        ++at;
        switch (argument.kind()) {
        case Value::Kind::Integer: statement.bind(at, argument.integer()); break;
        case Value::Kind::Double: statement.bind(at, argument.number()); break;
        case Value::Kind::Text: statement.bind(at, argument.text()); break;
        case Value::Kind::Data: statement.bind(at, argument.bytes()); break;
        default: statement.bindNull(at);
        }
    }
}

std::string cutTextOf(StoreQuery const& query) {
    return fmt::format(" LIMIT {}{}", query.limit == 1 ? "1" : "?", query.offset == 0 ? "" : " OFFSET ?");
}

void bindCut(SQLite::Statement& statement, StoreQuery const& query, int before) {
    if (query.limit != 1) statement.bind(++before, limitIn(query));
    if (query.offset != 0) statement.bind(++before, offsetIn(query));
}

SQLiteRowDecoder& SQLiteReader::decoderFor(NSEntityDescription const& entity, bool includesSubentities) {
    auto const key = std::pair(entity.index(), includesSubentities);
    if (auto const found = decoders_.find(key); found != decoders_.end()) return found->second;
    return decoders_.try_emplace(key, schema_, entity, includesSubentities, asOf_).first->second;
}

std::string SQLiteReader::conditionOf(Scanned const& scanned, SQLTranslation const& translation) const {
    auto condition = translation.condition();
    // The table holds the records of the whole tree.
    bool const isWholeTree = !scanned.entity->superentity() && scanned.includesSubentities;
    if (!schema_.tableOf(*scanned.entity).hasEntityColumn || isWholeTree)
        return condition.empty() ? condition : " WHERE " + condition;
    auto const numbers = scanned.includesSubentities ? schema_.numbersInTreeOf(*scanned.entity)
                                                     : std::to_string(schema_.numberOf(*scanned.entity));
    return fmt::format(" WHERE t0.entity IN ({}){}{}", numbers, condition.empty() ? "" : " AND ", condition);
}

bool SQLiteReader::translate(StoreQuery const& query, SQLTranslation& translation) const {
    return (!query.predicate || translation.addPredicate(*query.predicate)) && translation.addOrder(query.sortDescriptors);
}

RequestReading SQLiteReader::readingOf(StoreQuery const& query, SQLTranslation const& translation, bool isComplete) {
    bool const asksToCut = query.limit != 0 || query.offset != 0;
    RequestReading reading{.isCut = isComplete && asksToCut, .keysOnly = query.wantsKeysOnly && isComplete};
    auto const& order = translation.order();
    reading.byKeys = reading.keysOnly || (!reading.isCut && decoderOf(query).expectsCached());
    reading.isFed = !reading.isCut && order.empty();
    reading.isInOrder = reading.isCut || !order.empty();
    return reading;
}

std::string SQLiteReader::textOf(StoreQuery const& query, SQLTranslation const& translation, RequestReading const& reading) {
    auto& decoder = decoderOf(query);
    auto const& order = translation.order();
    auto const condition = conditionOf(scannedBy(query), translation);
    bool const isCutFirst = reading.isCut && translation.isAllInSource() && condition == " WHERE " + translation.condition();
    auto sql = fmt::format("SELECT {} FROM {}{} AS t0{}{}",
                           reading.byKeys  ? "t0.id, t0.version"
                           : reading.isFed ? decoder.selection()
                           : order.empty() ? decoder.values()
                                           : decoder.columns(),
                           isCutFirst ? translation.sourceCutBy(cutTextOf(query)) : translation.source(),
                           schema_.tableOf(*query.entity).name, translation.joins(), condition);
    if (reading.isInOrder) sql += " ORDER BY " + (order.empty() ? "t0.id" : order);
    if (reading.isCut && !isCutFirst) sql += cutTextOf(query);
    return sql;
}

void SQLiteReader::fetch(StoreQuery const& query, StoreAnswer& answer, std::optional<Span> span) {
    SQLite::Interruption const interruption(connection_, query.isGivenUp);
    auto& decoder = decoderOf(query);
    bool const asksToCut = query.limit != 0 || query.offset != 0;
    bool const isPerhapsCached = !asksToCut && decoder.expectsCached();
    bool const isPaged = span && span->last - span->first >= fewest && query.sortDescriptors.empty();
    bool const isQuicker = query.wantsKeysOnly || !isPerhapsCached;
    if (isPaged && isQuicker && readAllPages(query, *span, interruption, answer)) return;
    auto const comparisons = isPerhapsCached ? SQLiteKnownRequests::Comparisons() : SQLiteKnownRequests::comparisonsOf(query);
    if (auto const* known = known_.find(query, comparisons)) {
        if (lookUp(query, *known, answer)) return;
        known_.bind(*known, query);
        SQLite::StatementUse const use(*known->statement);
        return readFrom(*use, known->reading, query, answer);
    }
    SQLTranslation translation(schema_, *query.entity);
    answer.complete = translate(query, translation);
    auto const reading = readingOf(query, translation, answer.complete);
    auto const sql = textOf(query, translation, reading);
    auto const run = [&](SQLite::Statement& statement) {
        bindAll(statement, translation.arguments());
        if (reading.isCut) bindCut(statement, query, static_cast<int>(translation.arguments().size()));
        readFrom(statement, reading, query, answer);
    };
    std::optional<SmallCache> smallCache;
    if (span && span->isLong()) smallCache.emplace(connection_);
    if (!translation.isReusable()) return run(*std::make_unique<SQLite::Statement>(connection_, sql));
    auto const use = connection_.use(sql);
    run(*use);
    if (answer.complete)
        known_.remember(query, comparisons, translation.arguments(), {reading, &*use, columnOfEquality(translation)});
}

void SQLiteReader::readFrom(SQLite::Statement& statement, RequestReading const& reading, StoreQuery const& query,
                            StoreAnswer& answer) {
    auto& decoder = decoderOf(query);
    if (reading.keysOnly)
        while (statement.step()) answer.keys.push_back(statement.integer(0));
    else if (reading.byKeys)
        readByKeys(statement, query, answer.rows);
    else if (reading.isFed)
        decoder.readAll(feed_, statement, answer.rows);
    else
        decoder.readAll(statement, answer.rows);
    if (!reading.isCut && !reading.keysOnly) decoder.noteCount(answer.rows.size());
    if (reading.isInOrder) return;
    // An index gives them in its own order. SQL is not asked to sort them: it would rather read the whole table in order.
    sortByKey(answer.keys, std::identity());
    sortByKey(answer.rows, [](RowRef const& row) { return row->key(); });
}

std::optional<SQLiteReader::Selection> SQLiteReader::selectionOf(StoreQuery const& query) const {
    SQLTranslation translation(schema_, *query.entity);
    if (query.predicate && !translation.addPredicate(*query.predicate)) return {};
    bool const isCut = query.limit != 0 || query.offset != 0;
    if (isCut && !translation.addOrder(query.sortDescriptors)) return {};
    Selection selection{conditionOf(scannedBy(query), translation), translation.arguments()};
    if (!isCut && translation.joins().empty() && translation.source().empty()) return selection;
    auto inner = fmt::format("SELECT t0.id FROM {}{} AS t0{}{}", translation.source(), schema_.tableOf(*query.entity).name,
                             translation.joins(), selection.condition);
    if (isCut) {
        inner += fmt::format(" ORDER BY {} LIMIT ? OFFSET ?", translation.order().empty() ? "t0.id" : translation.order());
        selection.arguments.push_back(limitIn(query));
        selection.arguments.push_back(offsetIn(query));
    }
    selection.condition = " WHERE t0.id IN (" + inner + ")";
    return selection;
}

std::optional<SQLiteReader::Span> SQLiteReader::spanOf(StoreQuery const& query) {
    if (query.predicate || query.limit != 0 || query.offset != 0) return {};
    auto const& table = schema_.tableOf(*query.entity).name;
    auto const ends = connection_.use(fmt::format("SELECT (SELECT min(id) FROM {0}), (SELECT max(id) FROM {0})", table));
    return ends->step() ? std::optional(Span{ends->integer(0), ends->integer(1)}) : std::nullopt;
}

/// For records of which most are at hand: reads keys and versions, then the records that are not.
void SQLiteReader::readByKeys(SQLite::Statement& statement, StoreQuery const& query, std::vector<RowRef>& rows) {
    auto& cache = schema_.space().cache();
    std::vector<RecordKey> missing;
    std::vector<std::size_t> places;
    while (statement.step()) {
        auto const key = statement.integer(0);
        rows.push_back(cache.find(key, versionFrom(key, statement.integer(1))));
        if (rows.back()) continue;
        missing.push_back(key);
        places.push_back(rows.size() - 1);
    }
    if (missing.empty()) return;
    std::unordered_map<RecordKey, std::size_t> placeOf;
    for (std::size_t at = 0; at < missing.size(); ++at) placeOf.emplace(missing[at], places[at]);
    this->rows(*query.entity->rootEntity(), missing, [&](RowRef row) {
        auto& place = rows[placeOf[row->key()]];
        place = std::move(row);
    });
    std::erase(rows, RowRef()); // of an entity that this model does not know
}

std::string SQLiteReader::countText(Scanned const& scanned, SQLTranslation const& translation) const {
    return fmt::format("SELECT count(*) FROM {}{} AS t0{}{}", translation.source(), schema_.tableOf(*scanned.entity).name,
                       translation.joins(), conditionOf(scanned, translation));
}

void SQLiteReader::count(StoreQuery const& query, std::size_t& count, bool& complete) {
    SQLTranslation translation(schema_, *query.entity);
    complete = !query.predicate || translation.addPredicate(*query.predicate);
    if (!complete) return;
    auto sql = countText(scannedBy(query), translation);
    auto arguments = translation.arguments();
    if (!query.without.empty()) {
        // What is counted without some records is all less those: an index counts all without a look at each.
        auto const all = sql;
        std::string left = "(";
        auto const own = arguments;
        arguments.insert(arguments.end(), own.begin(), own.end());
        addRanges(query.without, left, arguments);
        auto const word = conditionOf(scannedBy(query), translation).empty() ? " WHERE " : " AND ";
        sql = fmt::format("SELECT ({}) - ({}{}{}))", all, all, word, left);
    }
    SQLite::Statement statement(connection_, sql);
    bindAll(statement, arguments);
    if (!statement.step()) return;
    auto const all = static_cast<std::size_t>(statement.integer(0));
    auto const left = all - std::min(all, query.offset);
    count = query.limit == 0 ? left : std::min(left, query.limit);
}

} // namespace Tessarin
