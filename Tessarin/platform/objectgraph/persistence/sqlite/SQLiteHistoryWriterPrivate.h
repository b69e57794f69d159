#pragma once
#include "Tessarin/platform/objectgraph/persistence/history/HistoryPackingPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/BatchChangePrivate.h"

namespace Tessarin {

/// Writes the rows of a store's history, in the transaction whose changes they tell. A history that is damaged is told once, on
/// standard error, and no save fails because of it. Where no history is wanted, all of it does nothing.
class TESSARIN_API SQLiteHistoryWriter {
public:
    /// `writer`: names the open store, as no other in any process; 0: no history is wanted.
    SQLiteHistoryWriter(SQLiteSchema const& schema, SQLite::Connection& connection, SQLiteReader& reader, std::int64_t writer)
        : schema_(schema), connection_(connection), reader_(reader), writer_(writer) {}

    /// A transaction begins, or a further attempt at it.
    void begin();
    /// The changes of a set follow; those before it are another row if somebody else made them.
    void add(ChangeSet const& set);
    /// These are about to be deleted.
    void noteDeletions(NSEntityDescription const& rootEntity, std::span<RecordKey const> keys);
    bool keepsValues(NSEntityDescription const& rootEntity);
    /// Requests that go past all contexts. What is told by range costs two look-ups.
    void begin(Ref<ChangeOrigin const> origin);
    void addRecords(HistoryChange::Kind kind, std::span<BatchOutcome::Record> records, HistoryPacker::Mask const& mask = {});
    void addRuns(std::span<RecordRun const> runs);
    /// `entity` has the properties in the mask; its root may not have them.
    void addTable(HistoryChange::Kind kind, NSEntityDescription const& entity, HistoryPacker::Mask const& mask = {});
    /// A record lost a link to one that is gone.
    void addCut(RecordKey key, NSPropertyDescription const& property);
    /// Before the commit.
    void end();
    /// Where it is not wanted: the transaction changes records all the same.
    void noteGap();

    bool isWanted() const noexcept { return writer_ != 0 && !isBroken_; }
    /// The transactions that were written since `begin`; last < first: none.
    struct Written {
        std::int64_t first = 0, last = -1;
    };
    Written written() const noexcept { return written_; }

private:
    void writeRow();

    SQLiteSchema const& schema_;
    SQLite::Connection& connection_;
    SQLiteReader& reader_;
    std::int64_t const writer_;
    bool isBroken_ = false;
    HistoryPacker packer_;
    Ref<ChangeOrigin const> origin_; // of what is in the packer
    Written written_;
};

} // namespace Tessarin
