#pragma once
#include "Tessarin/platform/objectgraph/persistence/ModelMappingPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/StoredModel.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <map>

namespace Tessarin {

/// How many records each entity of the stored model has, by its index; sub-entities count for themselves.
std::vector<std::int64_t> recordCounts(SQLite::Connection& connection, StoredModel const& stored);

/// Brings a file from the model it was written with to that of `space`, within a write transaction of the caller. Records
/// keep their keys and versions. Throws Refused where no rule leads from the one model to the other, or where the records
/// break a uniqueness that is new.
///
/// Tables that are the same in both models stay, with columns added where that is all; the others are made anew under the
/// new names and filled from the old ones, which were moved out of the way.
class SQLiteMigration {
public:
    SQLiteMigration(SQLite::Connection& connection, StoredModel const& stored, RowSpace& space)
        : connection_(connection),
          counts_(recordCounts(connection, stored)),
          mapping_(*stored.model, space.model(), [this](NSEntityDescription const& old) { return counts_[old.index()] != 0; }),
          oldSpace_(stored.model),
          oldSchema_(oldSpace_, stored.entityNumbers),
          space_(space),
          schema_(space, numbersAfter(stored)) {}

    ModelMapping const& mapping() const noexcept { return mapping_; }
    std::int64_t countOf(NSEntityDescription const& old) const noexcept { return counts_[old.index()]; }
    /// Gives the numbers of the entities.
    std::vector<std::int64_t> run();

private:
    using Link = SQLiteSchema::Link;
    using Table = SQLiteSchema::Table;
    /// The columns that a new record gets, and the expression for each over the old record's table.
    using Expressions = std::map<std::string, std::string>;
    /// Links as they stand in the old tables.
    struct Pairs {
        std::string table, owner, member, position = "NULL", ownerPosition = "NULL";
    };

    std::vector<std::int64_t> numbersAfter(StoredModel const& stored) const;
    std::vector<NSEntityDescription const*> entitiesOf(Table const& table) const;
    Expressions expressionsFor(NSEntityDescription const& entity) const;
    std::string expressionFor(NSEntityDescription const& entity, NSPropertyDescription const& property,
                              NSPropertyDescription const* source) const;
    std::string literalOfDefault(NSEntityDescription const& entity, NSAttributeDescription const& attribute) const;
    Table const* unchanged(Table const& table) const;
    Link const* unchanged(Link const& link) const;

    void dropIndexes();
    void moveAway(std::string const& table);
    void addColumns(Table const& table, Table const& old);
    void fill(Table const& table);
    void fill(Link const& link);
    void fillFromMembers(NSRelationshipDescription const& toOne);
    void makeIndexes();
    void forgetLinksToNobody();
    std::string const& currentName(std::string const& oldTable) const;
    Pairs pairsOf(NSRelationshipDescription const& old) const;
    Pairs swapped(Pairs pairs) const;

    SQLite::Connection& connection_;
    std::vector<std::int64_t> const counts_;
    ModelMapping const mapping_;
    RowSpace oldSpace_;
    SQLiteSchema const oldSchema_;
    RowSpace& space_;
    SQLiteSchema const schema_;
    std::map<std::string, std::string> moved_; // old table → where it is now
};

} // namespace Tessarin
