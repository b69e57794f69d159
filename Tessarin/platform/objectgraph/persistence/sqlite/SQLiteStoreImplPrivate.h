#pragma once
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteDamagePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteKeyBlocksPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteOthersPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderPoolPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStorePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteTableScansPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteWriterPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreMetadataPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreRefusal.h"
#include <atomic>
#include <mutex>

namespace Tessarin {

class SQLiteHistoryReader;

/// What an open store consists of.
struct SQLiteStore::Impl {
    struct Writing {
        SQLite::Connection connection;
        SQLiteWriter writer;
        SQLite::Connection::LogState left{}; // the file's after the last change of records here; all 0 when it is not known
        Writing(SQLiteSchema const& schema, std::string const& path, SQLite::ConnectionOptions const& options,
                std::int64_t historyWriter)
            : connection(path, options), writer(schema, connection, historyWriter) {
            connection.execute("PRAGMA journal_size_limit = 16777216"); // a log that one large save made long does not stay so
        }
        /// A transaction has begun that changes records. Where the history does not tell it, that is noted there, which has a price
        /// only if anybody has committed since the last change here; false then.
        bool beginChange(SQLite::Connection::LogState const& before);
        /// It was committed.
        void endChange(SQLite::Connection::LogState const& before);
    };

    Impl(NSURL file, Ref<RowSpace> rowSpace, std::vector<std::int64_t> entityNumbers, SQLite::ConnectionOptions connectionOptions,
         SQLiteSchema::Searches searches)
        : url(std::move(file)),
          space(std::move(rowSpace)),
          schema(*space, std::move(entityNumbers), searches),
          path(url.path()),
          options(std::move(connectionOptions)),
          readers(std::make_shared<SQLiteReaderPool>(schema, path, options)),
          scans(std::make_shared<SQLiteTableScans>(space, readers)),
          damage(schema, path, options),
          keys(schema) {}

    ~Impl() { scans->waitForHelpers(); }

    /// The writing connection, made on first use. The caller holds `writing`.
    Writing& writer();
    /// Throws when the store was closed on purpose.
    void requireOpen() const;
    /// Throws when the file that is open is not the one at its path: what is written there would be lost.
    void requireInPlace() const;
    Ref<NSError> reading(std::string const& table, FunctionRef<void(SQLiteReader&)> work);
    void requireSameModel(SQLite::Connection& connection) const;
    /// Whether the error was of an index of words, and the index is in order now. The caller holds `writing`.
    bool mendsSearches(Ref<NSError> const& error);
    /// One transaction of `change`, which is false when it did nothing.
    Ref<NSError> inBatch(BatchOutcome& outcome, FunctionRef<bool(SQLiteWriter&)> change);

    /// A transaction that may be told in the history was committed: others are given notice. `isAlone`: as `beginChange` said. The
    /// caller holds `writing`.
    void noteCommit(bool isAlone);
    Ref<NSError> readingHistory(FunctionRef<void(SQLiteHistoryReader&)> work);
    /// One transaction of `change`.
    Ref<NSError> changingHistory(FunctionRef<void(SQLiteHistoryReader&, SQLite::Connection&)> change);

    NSURL const url;
    Ref<RowSpace> const space;
    SQLiteSchema const schema;
    std::string const path;
    SQLite::ConnectionOptions const options;
    std::string identifier; // constant after opening
    std::optional<StoreRefusal::Identity> identity; // of the file; likewise
    bool isReadOnly = false; // likewise
    std::int64_t modelGeneration = 0; // likewise; counts the migrations of the file
    // The history, constant after opening: the number under which this store writes it, 0 where it does not, and how long it is kept.
    std::int64_t historyWriter = 0;
    std::optional<double> historyAge;
    Ref<SQLiteOthers> others; // null where they are not merged
    Ref<SQLiteReaderPool> const readers;
    Ref<SQLiteTableScans> const scans;
    std::optional<SQLiteNotice> notice; // constant after opening; of who keeps a history
    SQLiteDamage damage;
    StoreMetadata metadata;
    SQLiteKeyBlocks keys;
    std::atomic<bool> isClosed{false}; // set with `writing` held
    std::mutex writing; // one save at a time
    std::unique_ptr<Writing> writerSeat; // guarded by writing
};

} // namespace Tessarin
