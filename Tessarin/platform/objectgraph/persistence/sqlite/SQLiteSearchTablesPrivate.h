#pragma once
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteOpeningProgressPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteRecordWriterPrivate.h"

namespace Tessarin {

/// The indexes of words that a file has, and whether its texts were taken apart by the rules that hold here.
class SQLiteSearchTables {
public:
    explicit SQLiteSearchTables(SQLite::Connection& connection) : connection_(connection) {}

    /// Whether it has just those of the schema, as they would be made now.
    bool areAsIn(SQLiteSchema const& schema) { return areAsIn(schema, version()); }
    /// The same for who has read what `tessarin_store` says under "search".
    bool areAsIn(SQLiteSchema const& schema, std::string const& version);

    // Within a write transaction of the caller.
    /// Drops all but those of the schema that would be made again as they are over a table for which `isKept`; gives these.
    std::vector<std::string> dropOthers(SQLiteSchema const& schema, FunctionRef<bool(SQLiteSchema::Search const&)> isKept);
    void make(SQLiteSchema::Search const& search);
    /// Takes all texts of its table apart.
    void fill(SQLiteSchema::Search const& search);
    /// Remembers by which rules.
    void writeVersion(SQLiteSchema const& schema);

private:
    struct Found {
        std::string name, statement;
    };
    std::vector<Found> found();
    std::string version();

    SQLite::Connection& connection_;
};

/// Keeps the indexes of words up to what a writer does to records, over the same connection and within its transactions.
class SQLiteSearchWriter {
public:
    SQLiteSearchWriter(SQLite::Connection& connection, SQLiteSchema const& schema);

    bool isOver(NSEntityDescription const& entity) const noexcept { return schema_.searchOf(entity) != nullptr; }
    bool concerns(NSPropertyDescription const& property) const noexcept;
    /// After the insertion.
    void insert(Row const& row);
    /// After the update.
    void update(Row const& before, Row const& after);
    // Of records as they stand in the file: taken out before they change or go, put in afterwards.
    void takeOut(NSEntityDescription const& entity, std::span<RecordKey const> keys);
    void putIn(NSEntityDescription const& entity, std::span<RecordKey const> keys);
    void takeOutAll(NSEntityDescription const& entity);

private:
    struct Words { // of one entity's records
        SQLiteSchema::Search const* search;
        std::vector<int> cells; // by column of the index; -1: another sub-entity's
    };
    Words const& wordsOf(NSEntityDescription const& entity);
    void run(SQLiteSchema::Search const& search, bool isDeletion, Row const& row, std::vector<int> const& cells);

    SQLite::Connection& connection_;
    SQLiteSchema const& schema_;
    std::vector<std::optional<Words>> words_; // by index of the entity
};

} // namespace Tessarin
