#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/OrderPositionsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/sqlite/GivenRows.h"
#include <memory>

namespace Tessarin {

/// Writes what changed in to-many relationships: the rows of join tables, and positions of ordered ones. To-one columns
/// are written with their records. Each link is written once, from one of its two sides.
class TESSARIN_API SQLiteLinkWriter {
public:
    SQLiteLinkWriter(SQLite::GivenRows& given, SQLite::Connection& connection, SQLiteSchema const& schema);

    /// Takes note of a record's changes, for `write`.
    void collect(RecordChange const& change);
    /// How many links of each table are waiting, by index of the schema's links.
    std::size_t waiting(std::size_t link) const noexcept { return tables_[link].added.size(); }
    void write();
    void forget() noexcept;
    /// Removes every link of records that were deleted. The keys are sorted.
    void removeAllOf(NSEntityDescription const& rootEntity, std::span<RecordKey const> keys);
    /// Of all records of that root entity.
    void removeAllOf(NSEntityDescription const& rootEntity);

private:
    struct Added {
        RecordKey owner = 0;
        RecordKey member = 0;
    };
    struct Ordered {
        RecordKey owner = 0;
        std::span<RecordKey const> members;
        bool isNew = false; // nothing stands in the store yet
    };
    struct Table {
        std::vector<Added> added;
        std::vector<std::pair<RecordKey, RecordKey>> removed;
        std::vector<Ordered> ordered;
        std::unique_ptr<SQLite::Statement> insert, insertGiven;
    };
    void writeAdded(std::size_t link);
    void writeRemoved(std::size_t link);
    void writeOrder(std::size_t link);
    std::vector<OrderedMember> stored(SQLiteSchema::Link const& link, Ordered const& order);

    SQLite::GivenRows& given_;
    SQLite::Connection& connection_;
    SQLiteSchema const& schema_;
    std::vector<Table> tables_; // by index of the schema's links
};

} // namespace Tessarin
