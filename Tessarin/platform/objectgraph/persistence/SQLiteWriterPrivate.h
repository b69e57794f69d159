#pragma once
#include "Tessarin/platform/objectgraph/persistence/NSPersistentStore.h"
#include "Tessarin/platform/objectgraph/persistence/SQLiteLinkWriterPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/SQLiteReaderPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/SQLiteRecordWriterPrivate.h"
#include <unordered_set>

namespace Tessarin {

/// Writes change sets over the store's writing connection, within a transaction of the caller. Used by one thread at a
/// time; what fails throws ErrorException, and the transaction must then be taken back.
class TESSARIN_API SQLiteWriter {
public:
    SQLiteWriter(SQLiteSchema const& schema, SQLite::Connection& connection);

    void write(std::span<Ref<ChangeSet const> const> sets, SaveOutcome& outcome);
    /// Puts what `write` wrote into the cache; after the commit.
    void publish(std::span<Ref<ChangeSet const> const> sets, SaveOutcome const& outcome);

private:
    void writeSet(ChangeSet const& set, SaveOutcome& outcome);
    void writeDeletions(ChangeSet const& set);
    void writeUpdates(ChangeSet const& set, SaveOutcome& outcome);
    void giveUpUniqueValues(RecordChange const& change);
    void update(RecordChange const& change, SaveOutcome& outcome);
    void resolve(RecordChange const& change, SaveOutcome& outcome);
    void dropIndexesBefore(ChangeSet const& set);
    void dropIndexesOf(std::string const& table);
    void remakeIndexes();
    SQLiteRecordWriter& writerOf(NSEntityDescription const& entity);
    [[noreturn]] void explain(SQLite::Failure const& failure) const;

    SQLiteSchema const& schema_;
    SQLite::Connection& connection_;
    SQLiteReader reader_; // sees what the transaction has written
    SQLiteLinkWriter links_;
    std::vector<std::unique_ptr<SQLiteRecordWriter>> writers_; // by index of the entity
    std::vector<SQLiteSchema::Index const*> dropped_;
    std::unordered_set<RecordKey> gone_;     // updated here, deleted by somebody else
    std::unordered_set<RecordKey> resolved_; // merged with what somebody else had saved
};

} // namespace Tessarin
