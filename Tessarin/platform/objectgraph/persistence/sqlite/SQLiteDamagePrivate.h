#pragma once
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <mutex>

namespace Tessarin {

/// Says which table of a store is damaged. Any thread.
class TESSARIN_API SQLiteDamage {
public:
    SQLiteDamage(SQLiteSchema const& schema, std::string path, SQLite::ConnectionOptions options);

    /// The error of a read that met `failure` while it used `table` (quoted) and perhaps others. Damage is told with the table's
    /// entity, or a join table's relationship; any other failure is its own error. Once a table is known to be damaged this costs
    /// nothing for it; else as much as reading the tables that are sound.
    Ref<NSError> errorOf(SQLite::Failure const& failure, std::string const& table);

private:
    std::string damagedTable(std::string const& table);
    std::string whatIsIn(std::string const& table) const;

    SQLiteSchema const& schema_;
    std::string const path_;
    SQLite::ConnectionOptions const options_;
    std::mutex mutex_; // guards what follows
    std::string known_; // the damaged table that was found last
};

} // namespace Tessarin
