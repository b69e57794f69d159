#pragma once
#include "Tessarin/platform/objectgraph/persistence/migration/StoredModelPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteFileChecksPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteOpeningProgressPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteOwnTablesPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStoreImplPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteVerdictPrivate.h"

namespace Tessarin {

/// Opens a store's file: makes it, brings it to the model, waits or refuses.
class SQLiteOpening {
public:
    SQLiteOpening(NSURL const& file, Ref<RowSpace> space, SQLiteStoreOptions options);

    /// Null with an error when the file is refused, the path can hold none, or the limit of waiting is reached.
    std::unique_ptr<SQLiteStore::Impl> run(Ref<NSError>& error);

private:
    static constexpr std::size_t writeVersionPlace = 18, readVersionPlace = 19; // in the header of the file

    std::unique_ptr<SQLiteStore::Impl> attempt();
    std::unique_ptr<SQLiteStore::Impl> openForWriting(std::unique_ptr<SQLite::Connection>& connection);
    std::unique_ptr<SQLiteStore::Impl> openForReading(std::unique_ptr<SQLite::Connection>& connection);
    SQLite::ConnectionOptions optionsOfStore() const;
    void fill(SQLiteStore::Impl& impl, SQLite::Connection& connection) const;
    [[noreturn]] void refuse(Refused const& refused, SQLite::Connection* connection);
    bool isCancelled() const noexcept { return options_.opening && options_.opening->isCancelled() && !isBroughtToModel_; }
    void checkPlace();
    void checkLink() const;
    void makeFile();
    bool isOfNewerSQLite(std::size_t versionPlace) const;
    [[noreturn]] void throwReadOnly() const;
    SchemaLook makeIfEmpty(SQLite::Connection& connection);
    void create(SQLite::Connection& connection);
    void checkFormat(SQLite::Connection& connection);
    void checkPages(SQLite::Connection& connection);
    void checkAllPages(SQLite::Connection& connection) const;
    void requireReadable(std::string const& problem) const;
    std::optional<std::vector<std::int64_t>> numbersOfSameModel() const;
    /// What is searched must be searchable here, and have been taken apart by the rules that hold here.
    void requireFullText(SQLite::Connection& connection, SchemaLook const& look) const;
    void bringSearchesUp(SQLite::Connection& connection, SQLiteSchema const& schema, SQLiteOpeningProgress& progress);
    std::vector<std::int64_t> bringToModel(SQLite::Connection& connection, SQLiteOpeningProgress& progress);

    NSURL const file_;
    std::string const path_;
    Ref<RowSpace> const space_;
    SQLiteStoreOptions const options_;
    SQLite::ConnectionOptions const connectionOptions_;
    // What this attempt judges: where it stands, what it is, and what a migration would do.
    std::string judgedPlace_;
    std::optional<StoreRefusal::Identity> judged_;
    std::optional<MigrationPlan> plan_;
    bool isBroughtToModel_ = false; // and that is saved: it cannot be cancelled any more
    SQLiteOwnTables own_; // as its transaction sees them, like what follows
    std::int64_t format_ = 0;
    bool isSmall_ = false;
};

} // namespace Tessarin
