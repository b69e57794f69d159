#pragma once
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteDanglingLinksPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteHistoryWriterPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteLinkWriterPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteRecordWriterPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSearchTablesPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/BatchChangePrivate.h"

namespace Tessarin {

/// Writes change sets over the store's writing connection, within a transaction of the caller. Used by one thread at a
/// time; what fails throws ErrorException, and the transaction must then be taken back.
class TESSARIN_API SQLiteWriter {
public:
    /// `historyWriter`: see SQLiteHistoryWriter.
    SQLiteWriter(SQLiteSchema const& schema, SQLite::Connection& connection, std::int64_t historyWriter);

    /// Thrown by `write` at the first record that is not as a change expects it.
    struct Stale {};
    enum class Conflicts { Noticed, Settled };

    void write(std::span<Ref<ChangeSet const> const> sets, Conflicts conflicts);
    /// Puts what `write` wrote into the cache and tells what it wrote beside; after the commit.
    void publish(std::span<Ref<ChangeSet const> const> sets, SaveOutcome& outcome);
    /// Batch requests; false when SQL cannot say which records are meant, nothing is written then.
    bool update(BatchTarget const& target, std::span<BatchAssignment const> assignments, BatchOutcome& outcome);
    bool remove(std::span<BatchTarget const> targets, BatchOutcome& outcome);
    /// Takes what they wrote out of the cache; after the commit.
    void forgetRows(BatchOutcome const& outcome);
    /// The transactions of the history that stand for what was written last.
    SQLiteHistoryWriter::Written historyWritten() const noexcept { return history_.written(); }
    bool keepsHistory() const noexcept { return history_.isWanted(); }
    void noteHistoryGap() { history_.noteGap(); }
    /// The record as the transaction sees it.
    RowRef stored(NSEntityDescription const& entity, RecordKey key) { return reader_.row(*entity.rootEntity(), key); }

private:
    void writeSet(ChangeSet const& set);
    void removeLinksOfThoseBack(ChangeSet const& set);
    void writeDeletions(ChangeSet const& set);
    void checkVersions(std::string const& table, std::span<RecordChange const> changes);
    void writeUpdates(ChangeSet const& set);
    void giveUpUniqueValues(RecordChange const& change);
    void update(RecordChange const& change);
    void insertAll(ChangeSet const& set);
    void insert(NSEntityDescription const& entity, std::span<Row const* const> rows);
    void dropIndexesBefore(ChangeSet const& set);
    void dropIndexesOf(std::string const& table);
    void remakeIndexes();
    SQLiteRecordWriter& writerOf(NSEntityDescription const& entity);
    std::optional<SQLiteReader::Selection> selectionOf(BatchTarget const& target) const;
    void requireSources(BatchTarget const& target, std::span<BatchAssignment const> assignments,
                        SQLiteReader::Selection const& selection);
    /// The same records by key, so that they are known after they have changed.
    std::vector<RecordKey> byKeys(NSEntityDescription const& entity, SQLiteReader::Selection& selection);
    void nameRuns(NSEntityDescription const& entity, BatchOutcome& outcome);
    void removeAll(NSEntityDescription const& entity, BatchOutcome& outcome);
    void noteDeletionsOf(BatchTarget const& target, SQLiteReader::Selection const& selection);
    void endHistory();
    void runBatch(SQLite::Statement& statement, NSEntityDescription const& entity, BatchOutcome& outcome);
    [[noreturn]] void explain(SQLite::Failure const& failure) const;

    SQLiteSchema const& schema_;
    SQLite::Connection& connection_;
    SQLiteReader reader_; // sees what the transaction has written
    SQLite::GivenRows given_;
    SQLiteLinkWriter links_;
    SQLiteDanglingLinks dangling_;
    SQLiteHistoryWriter history_;
    SQLiteSearchWriter search_;
    Conflicts conflicts_ = Conflicts::Noticed;
    std::vector<std::unique_ptr<SQLiteRecordWriter>> writers_; // by index of the entity
    std::vector<RecordKey> deleted_; // by this write, so far
    std::vector<SQLiteSchema::Index const*> dropped_;
};

} // namespace Tessarin
