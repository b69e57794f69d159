#pragma once
#include "Tessarin/platform/objectgraph/persistence/SQLiteStorePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/StoredModel.h"

namespace Tessarin {

/// Opens a store's file: makes it, brings it to the model, waits or refuses.
class SQLiteOpening {
public:
    SQLiteOpening(NSURL const& file, Ref<RowSpace> space, SQLiteStoreOptions options);

    /// Null with an error when the file is refused.
    std::unique_ptr<SQLiteStore::Impl> run(Ref<NSError>& error);

private:
    std::unique_ptr<SQLiteStore::Impl> attempt();
    void checkPlace() const;
    [[noreturn]] void throwReadOnly() const;
    void makeIfEmpty(SQLite::Connection& connection);
    void create(SQLite::Connection& connection);
    void checkFormat(SQLite::Connection& connection) const;
    void checkPages(SQLite::Connection& connection) const;
    void checkAllPages(SQLite::Connection& connection) const;
    void requireReadable(std::string const& problem) const;
    std::vector<std::int64_t> bringToModel(SQLite::Connection& connection);

    NSURL const file_;
    std::string const path_;
    Ref<RowSpace> const space_;
    SQLiteStoreOptions const options_;
    SQLite::ConnectionOptions const connectionOptions_;
};

} // namespace Tessarin
