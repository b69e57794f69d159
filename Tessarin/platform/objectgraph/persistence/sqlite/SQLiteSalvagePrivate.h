#pragma once
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSalvagePagesPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/SalvageReport.h"
#include "Tessarin/platform/sqlite/Connection.h"

namespace Tessarin {

/// Copies what can be read of one store's file into another. A table that cannot be read from one end to the other is read page
/// by page, and what leads to a page does not have to be sound. Indexes and links tell what is missing then.
class TESSARIN_API SQLiteSalvage {
public:
    /// `damaged` is a copy that nobody else uses, without a log; `fresh` has the empty tables of `schema` and is in a
    /// transaction.
    SQLiteSalvage(std::string const& damagedPath, SQLite::Connection& damaged, SQLite::Connection& fresh,
                  SQLiteSchema const& schema);

    /// Throws ErrorException for what is no damage: memory, space. Once.
    SalvageReport run();

private:
    struct Table {
        SQLiteSchema::Table const& schema;
        SalvageReport::Entity& report;
        std::vector<std::string> columns = {}; // those that the file has: id, version and perhaps entity first
        std::string kinds = {}; // of the file's columns in their order: 'K' the key, else as SQLite's types begin
        bool isDamaged = false; // could not be read from one end to the other
        bool isBroken = false; // nor do all its pages have a way to them
    };
    void openTable(SQLiteSchema::Table const& schema);
    static std::string rowsOf(Table const& table);
    /// False when the rows end before their end.
    bool readRows(Table& table, std::string const& sql);
    void add(Table& table, SQLite::Statement const& from);
    void readPages();
    std::vector<std::pair<std::string, SQLiteSalvagePages::Page>> rootPages();
    bool readPage(Table& table, SQLiteSalvagePages::Page page);
    static bool fits(Table const& table, std::vector<std::uint64_t> const& types);

    // SQLiteSalvage+Links.cpp
    void readLinks(SQLiteSchema::Link const& link);
    bool readLinks(std::string const& insertion, std::string const& rows);
    void noteMissing(Table& table);
    void cutLinks();
    std::string isMissing(NSEntityDescription const& destination, std::string const& column) const;
    SalvageReport::Entity& reportOf(NSEntityDescription const& entity);
    void keepNextKey();

    SQLite::Connection& damaged_;
    SQLite::Connection& fresh_;
    SQLiteSchema const& schema_;
    SQLiteSalvagePages pages_;
    SalvageReport report_;
    std::vector<Table> tables_;
    RecordKey largestMissing_ = 0;
};

} // namespace Tessarin
