#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteHistoryReaderPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/history/HistoryPackingPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteHistoryTablePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <iterator>

namespace Tessarin {
namespace {

[[noreturn]] void fail(StoreErrorCode code, std::string text) { throw ErrorException(storeError(code, std::move(text))); }

[[noreturn]] void failPurged() {
    fail(StoreErrorCode::HistoryPurged, "What followed that place in the history was forgotten, or saved without one: the "
                                        "records themselves have to be fetched.");
}

/// Runs `work`; what SQLite says of the history itself is told as such.
auto reading(SQLite::Connection const& connection, auto work) {
    try {
        return work();
    } catch (SQLite::Failure const& failure) {
        if (failure.primaryCode() == SQLITE_ERROR)
            fail(StoreErrorCode::HistoryMissing, "This file has no history: " + connection.path());
        if (failure.primaryCode() == SQLITE_CORRUPT)
            fail(StoreErrorCode::HistoryDamaged, "The history is damaged: " + failure.message());
        throw;
    }
}

HistoryExtent requiredExtent(SQLite::Connection& connection) {
    auto const extent = historyOf(connection);
    if (extent.name == 0) fail(StoreErrorCode::HistoryMissing, "This file has no history: " + connection.path());
    return extent;
}

/// The transactions of a history follow one another without gaps.
void requireNext(std::int64_t transaction, std::int64_t& last) {
    if (transaction != last + 1)
        fail(StoreErrorCode::HistoryDamaged, fmt::format("The history is damaged: transaction {} is missing.", last + 1));
    last = transaction;
}

} // namespace

std::vector<HistoryChange> SQLiteHistoryReader::changesOf(SQLite::Statement& row, int column) {
    std::vector<HistoryChange> changes;
    auto const entityNumbered = [&](std::int64_t number) { return schema_.entityNumbered(number); };
    if (!unpackHistory(row.bytes(column), entityNumbered, changes))
        fail(StoreErrorCode::HistoryDamaged,
             fmt::format("The history is damaged: transaction {} cannot be read.", row.integer(0)));
    return changes;
}

void SQLiteHistoryReader::read(HistoryRequest const& request, std::vector<HistoryTransaction>& found) {
    reading(connection_, [&] {
        auto const extent = requiredExtent(connection_);
        auto last = extent.purged;
        if (auto const& after = request.after) {
            if (after->history != extent.name || after->transaction > extent.newest)
                fail(StoreErrorCode::HistoryPurged, "The token is of another history than this file's.");
            if (after->transaction < extent.start()) failPurged();
            last = after->transaction;
        }
        auto const since = request.since ? request.since->timeIntervalSinceReferenceDate() : -1e300;
        auto const rows = connection_.use(
            "SELECT id, time, process, writer, author, context, changes FROM tessarin_history WHERE id > ? ORDER BY id");
        rows->bind(1, last);
        while (rows->step()) {
            requireNext(rows->integer(0), last);
            if (rows->real(1) < since) continue;
            HistoryTransaction transaction{.token = {extent.name, last},
                                           .date = NSDate::dateWithTimeIntervalSinceReferenceDate(rows->real(1)),
                                           .author = std::string(rows->text(4)),
                                           .context = std::string(rows->text(5)),
                                           .process = rows->integer(2),
                                           .isOwn = rows->integer(3) == own_};
            if (request.predicate && !request.predicate->evaluateWithObject(Value(Dictionary{{"author", transaction.author},
                                                                                             {"context", transaction.context},
                                                                                             {"process", transaction.process},
                                                                                             {"date", transaction.date},
                                                                                             {"isOwn", transaction.isOwn}})))
                continue;
            transaction.changes = changesOf(*rows, 6);
            if (transaction.changes.empty()) continue; // it ends a gap
            found.push_back(std::move(transaction));
            if (found.size() == request.limit) return;
        }
    });
}

HistoryToken SQLiteHistoryReader::newest() {
    return reading(connection_, [&] {
        auto const extent = requiredExtent(connection_);
        return HistoryToken{extent.name, extent.newest};
    });
}

bool SQLiteHistoryReader::endsWithGap() {
    return reading(connection_, [&] { return requiredExtent(connection_).endsWithGap(); });
}

std::vector<HistoryChange> SQLiteHistoryReader::othersChanges(std::int64_t& upTo) {
    return reading(connection_, [&] {
        auto const extent = requiredExtent(connection_);
        auto last = std::exchange(upTo, extent.newest);
        std::vector<HistoryChange> changes;
        if (last == extent.newest) return changes;
        if (last < extent.start()) failPurged();
        auto const rows = connection_.use("SELECT id, writer, changes FROM tessarin_history WHERE id > ? ORDER BY id");
        rows->bind(1, last);
        while (rows->step()) {
            requireNext(rows->integer(0), last);
            if (rows->integer(1) != own_) std::ranges::move(changesOf(*rows, 2), std::back_inserter(changes));
        }
        return changes;
    });
}

std::int64_t SQLiteHistoryReader::lastBefore(NSDate const& date) {
    return reading(connection_, [&] {
        auto const extent = requiredExtent(connection_);
        auto const row = connection_.use("SELECT id FROM tessarin_history WHERE time >= ? ORDER BY id LIMIT 1");
        row->bind(1, date.timeIntervalSinceReferenceDate());
        return row->step() ? row->integer(0) - 1 : extent.newest;
    });
}

double SQLiteHistoryReader::ageOfOldest() {
    return reading(connection_, [&] {
        auto const row = connection_.use("SELECT time FROM tessarin_history ORDER BY id LIMIT 1");
        return row->step() ? NSDate().timeIntervalSinceReferenceDate() - row->real(0) : 0;
    });
}

} // namespace Tessarin
