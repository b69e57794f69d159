#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteHistoryWriterPrivate.h"

#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteHistoryTablePrivate.h"

#include <algorithm>
#include <cstdio>
#include <fmt/format.h>
#include <sqlite3.h>
#include <unistd.h>

namespace Tessarin {
namespace {

using Kind = HistoryChange::Kind;

constexpr auto insertion = "INSERT INTO tessarin_history (id, time, process, writer, author, context, changes) VALUES "
                           "(max(coalesce((SELECT max(id) FROM tessarin_history), 0), coalesce((SELECT CAST(value AS INTEGER) "
                           "FROM tessarin_store WHERE key = 'historyPurged'), 0)) + 1, ?, ?, ?, ?, ?, ?)";

bool isSame(Ref<ChangeOrigin const> const& one, Ref<ChangeOrigin const> const& other) {
    return one == other || (one && other && *one == *other);
}

/// Whether the history itself is at fault, and not the disk, the memory or another process.
bool isDamage(SQLite::Failure const& failure) {
    auto const code = failure.primaryCode();
    return code == SQLITE_CORRUPT || code == SQLITE_ERROR || code == SQLITE_CONSTRAINT || code == SQLITE_MISMATCH;
}

} // namespace

void SQLiteHistoryWriter::begin() {
    packer_.forget();
    origin_ = nullptr;
    written_ = {};
}

void SQLiteHistoryWriter::begin(Ref<ChangeOrigin const> origin) {
    begin();
    origin_ = std::move(origin);
}

void SQLiteHistoryWriter::add(ChangeSet const& set) {
    if (!isWanted()) return;
    if (!isSame(origin_, set.origin())) writeRow();
    origin_ = set.origin();
    packer_.add(set);
}

bool SQLiteHistoryWriter::keepsValues(NSEntityDescription const& rootEntity) {
    if (!isWanted()) return false;
    return packer_.keepsValues(rootEntity) ||
           std::ranges::any_of(rootEntity.subentities(), [&](auto const* each) { return keepsValues(*each); });
}

/// They are read once more: a deletion may have been made on a record that nobody has looked at.
void SQLiteHistoryWriter::noteDeletions(NSEntityDescription const& rootEntity, std::span<RecordKey const> keys) {
    if (!keepsValues(rootEntity)) return;
    reader_.rows(rootEntity, keys, [&](RowRef row) {
        auto const& entity = row->entity();
        if (!packer_.keepsValues(entity)) return;
        Dictionary kept;
        for (auto const* attribute : entity.attributes())
            if (auto const cell = row->layout().cellOf(attribute->index()); attribute->isKeptInHistory() && cell >= 0)
                kept.set(attribute->name(), row->value(static_cast<std::size_t>(cell)));
        packer_.addDeleted(entity, row->key(), kept);
    });
}

void SQLiteHistoryWriter::addRecords(Kind kind, std::span<BatchOutcome::Record> records, HistoryPacker::Mask const& mask) {
    if (!isWanted()) return;
    if (!std::ranges::is_sorted(records, {}, &BatchOutcome::Record::key))
        std::ranges::sort(records, {}, &BatchOutcome::Record::key);
    for (auto const& [entity, key] : records)
        if (kind != Kind::Deleted || !packer_.keepsValues(*entity))
            packer_.add(kind, *entity, key, key, HistoryChange::Extent::Each, mask);
}

void SQLiteHistoryWriter::addRuns(std::span<RecordRun const> runs) {
    if (!isWanted()) return;
    for (auto const& [entity, first, last] : runs)
        if (!packer_.keepsValues(*entity)) packer_.add(Kind::Deleted, *entity, first, last);
}

void SQLiteHistoryWriter::addTable(Kind kind, NSEntityDescription const& entity, HistoryPacker::Mask const& mask) {
    if (!isWanted()) return;
    auto const& table = schema_.tableOf(entity).name;
    auto const last = connection_.integer(fmt::format("SELECT max(id) FROM {}", table));
    if (last > 0)
        packer_.add(kind, entity, connection_.integer(fmt::format("SELECT min(id) FROM {}", table)), last,
                    HistoryChange::Extent::Range, mask);
}

void SQLiteHistoryWriter::addCut(RecordKey key, NSPropertyDescription const& property) {
    if (!isWanted()) return;
    HistoryPacker::Mask mask;
    HistoryPacker::mark(mask, property.index());
    packer_.add(Kind::Updated, *property.entity(), key, key, HistoryChange::Extent::Range, mask);
}

void SQLiteHistoryWriter::end() { writeRow(); }

void SQLiteHistoryWriter::noteGap() {
    try {
        noteHistoryGap(connection_);
    } catch (SQLite::Failure const& failure) {
        if (!isDamage(failure)) throw; // whoever asks for the history is told
    }
}

void SQLiteHistoryWriter::writeRow() {
    if (!isWanted() || packer_.empty()) return;
    auto const packed = packer_.pack([&](NSEntityDescription const& entity) { return schema_.numberOf(entity); });
    try {
        auto const row = connection_.use(insertion);
        row->bind(1, NSDate().timeIntervalSinceReferenceDate());
        row->bind(2, std::int64_t{::getpid()});
        row->bind(3, writer_);
        for (auto const& [at, text] : {std::pair(4, origin_ ? std::string_view(origin_->author) : std::string_view()),
                                       std::pair(5, origin_ ? std::string_view(origin_->context) : std::string_view())})
            text.empty() ? row->bindNull(at) : row->bind(at, text);
        row->bind(6, std::as_bytes(std::span(packed)));
        row->run();
        written_.last = ::sqlite3_last_insert_rowid(connection_.handle());
        if (written_.first == 0) written_.first = written_.last;
    } catch (SQLite::Failure const& failure) {
        if (!isDamage(failure)) throw;
        isBroken_ = true;
        std::fprintf(stderr, "Tessarin: the history of %s cannot be written, and is not from now on: %s\n",
                     connection_.path().c_str(), failure.message().c_str());
    }
}

} // namespace Tessarin
