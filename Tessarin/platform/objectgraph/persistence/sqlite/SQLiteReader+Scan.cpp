// Tables, and long parts of them, read from one end to the other.
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderSmallCachePrivate.h"
#include "Tessarin/platform/objectgraph/query/SQLTranslationPrivate.h"
#include "Tessarin/platform/sqlite/StatementLog.h"

#include <fmt/format.h>

namespace Tessarin {

/// Answers whether `read` has read them.
bool SQLiteReader::fromPages(SQLiteRowDecoder const& decoder, std::string const& table, PageReading read) {
    auto* const paged = paged_.find(table);
    auto const places = paged ? paged->placesFor(decoder) : std::span<std::size_t const>();
    if (places.empty()) return false;
    auto const start = std::chrono::steady_clock::now();
    auto const count = read(paged->walk, places);
    if (!count) paged_.avoid(*paged); // what is odd is mostly so in many places
    if (auto* const log = connection_.log()) log->note("pages of " + table, start, count.value_or(0));
    return count.has_value();
}

std::optional<bool> SQLiteReader::readPages(SQLiteRowDecoder& decoder, std::string const& table, Span span,
                                            std::vector<RowRef>& rows, SQLiteRowDecoder::Wants wants) {
    std::optional<bool> areNew;
    fromPages(decoder, table, [&](auto& walk, auto places) -> std::optional<std::size_t> {
        auto const before = rows.size();
        areNew = decoder.readAll(walk, places, span.first, span.last, rows, wants);
        return areNew ? std::optional(rows.size() - before) : std::nullopt;
    });
    return areNew;
}

bool SQLiteReader::readAllPages(StoreQuery const& query, Span span, SQLite::Interruption const& interruption,
                                StoreAnswer& answer) {
    auto& decoder = decoderOf(query);
    auto const& table = schema_.tableOf(*query.entity).name;
    if (query.wantsKeysOnly)
        return fromPages(decoder, table, [&](auto& walk, auto places) -> std::optional<std::size_t> {
            bool const areRead = decoder.readKeys(walk, places, span.first, span.last, answer.keys);
            return areRead ? std::optional(answer.keys.size()) : std::nullopt;
        });
    auto const isWanted = [&](RecordKey) { return interruption.check(), true; };
    if (!readPages(decoder, table, span, answer.rows, isWanted)) return false;
    decoder.noteCount(answer.rows.size());
    return true;
}

SQLiteReader::Scan::Scan(SQLiteReader& reader, Scanned const& scanned)
    : reader_(reader), scanned_(scanned), decoder_(reader.decoderFor(*scanned.entity, scanned.includesSubentities)) {}

SQLiteReader::Scan::~Scan() = default;

bool SQLiteReader::Scan::read(Span span, std::vector<RowRef>& rows) {
    auto const& table = reader_.schema_.tableOf(*scanned_.entity).name;
    auto const all = [](RecordKey) { return true; };
    if (auto const areNew = reader_.readPages(decoder_, table, span, rows, all)) return *areNew;
    if (!smallCache_) smallCache_ = std::make_unique<SmallCache>(reader_.connection_);
    auto const condition = reader_.conditionOf(scanned_, SQLTranslation(reader_.schema_, *scanned_.entity));
    auto const statement =
        reader_.connection_.use(fmt::format("SELECT {} FROM {} AS t0{}t0.id BETWEEN ? AND ?", decoder_.selection(), table,
                                            condition.empty() ? " WHERE " : condition + " AND "));
    statement->bind(1, span.first);
    statement->bind(2, span.last);
    return decoder_.readAll(reader_.feed_, *statement, rows);
}

} // namespace Tessarin
