#pragma once
#include "Tessarin/platform/objectgraph/persistence/migration/MigrationConditionsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/migration/StoredModelPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteOpeningProgressPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <map>
#include <set>

namespace Tessarin {

/// " WHERE entity = 3", or one that every record meets.
std::string whereEntity(SQLiteSchema const& schema, NSEntityDescription const& entity);
/// How many records each entity of the stored model has, by its index; sub-entities count for themselves.
std::vector<std::int64_t> recordCounts(SQLite::Connection& connection, StoredModel const& stored);

/// Brings a file from the model it was written with to that of `space`, within a write transaction of the caller. Records
/// keep their keys and versions. Throws Refused where the records do not meet a condition, break a uniqueness that is new, or
/// contradict each other in links that two relationships share from now on; the error counts them and names one.
///
/// Tables that are the same in both models stay, with columns added where that is all; the others are made anew under the
/// new names and filled from the old ones, which were moved out of the way. Links that do not just stay where they are, or
/// are copied in a column, are collected from all old relationships that held them before any of them is written.
class SQLiteMigration {
public:
    SQLiteMigration(SQLite::Connection& connection, StoredModel const& stored, RowSpace& space, SQLiteOpeningProgress& progress)
        : connection_(connection),
          progress_(progress),
          counts_(recordCounts(connection, stored)),
          mapping_(*stored.model, space.model()),
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
    using Relationship = NSRelationshipDescription;
    /// The columns that a new record gets, and the expression for each over the old record's table.
    using Expressions = std::map<std::string, std::string>;
    /// Links as they stand in the old tables.
    struct Pairs {
        std::string table, owner, member, position = "NULL", ownerPosition = "NULL";
    };
    /// A relationship of the new model whose links are written, with the one that shares them as its inverse: itself, another,
    /// or none. Where one of the two leads to one record, that one is written.
    struct Family {
        Relationship const* written = nullptr;
        Relationship const* other = nullptr;
        std::string table; // of links that were collected; empty where they stay or are copied
        bool isCollected() const noexcept { return !table.empty(); }
    };

    std::vector<std::int64_t> numbersAfter(StoredModel const& stored) const;
    std::vector<NSEntityDescription const*> entitiesOf(Table const& table) const;
    Expressions expressionsFor(NSEntityDescription const& entity) const;
    std::string expressionFor(NSEntityDescription const& entity, NSPropertyDescription const& property,
                              NSPropertyDescription const* source) const;
    std::string literalOfDefault(NSEntityDescription const& entity, NSAttributeDescription const& attribute) const;
    Table const* unchanged(Table const& table) const;
    Link const* unchanged(Link const& link) const;
    std::string const& currentName(std::string const& oldTable) const;

    std::int64_t countIn(Table const* table) const;
    Table const* tableNamed(std::string const& name) const;
    void expectSteps();
    void findKept();
    bool isKept(std::string const& table) const;
    bool isKept(SQLiteSchema::Search const& search) const;
    void moveOldTables();
    void dropIndexes();
    void moveAway(std::string const& table);
    void addColumns(Table const& table, Table const& old);
    void fill(Table const& table);
    void makeIndexes();
    void makeSearches();
    void forgetLinksToNobody();
    void forgetLinksToNobody(std::string const& table, Relationship const& relationship);
    void writeModel(std::vector<std::int64_t> const& numbers);

    // Links.
    std::vector<Family> families() const;
    bool stays(Family const& family) const;
    bool includes(Relationship const& one, Relationship const& other) const;
    void collect(Family& family);
    void collect(Family const& family, Pairs const& pairs, std::string const& condition);
    std::string withoutLost(Relationship const& old, Relationship const& now, std::string const& owner) const;
    void orderTheRest(Family const& family);
    void requireSingle(Family const& family);
    void requireSingle(Relationship const& toOne, Relationship const* inverse, std::string const& table, bool isOwner);
    void writeToOnes(Family const& family);
    Pairs pairsOf(Relationship const& old) const;
    static Pairs swapped(Pairs pairs);

    // Conditions.
    void checkBefore(MigrationCondition const& condition);
    void checkAfter(MigrationCondition const& condition);
    void checkDestinations(Family const& family);
    void checkDestinations(Relationship const& relationship, Relationship const* collectedFrom);
    std::string linkedTo(Relationship const& old, NSEntityDescription const& owner) const;
    /// `rows` selects `id` and `value` of the records in the way.
    void requireNone(std::string const& entity, std::string const& property, std::string const& reason, std::string const& rows);

    SQLite::Connection& connection_;
    SQLiteOpeningProgress& progress_;
    std::vector<std::int64_t> const counts_;
    ModelMapping const mapping_;
    RowSpace oldSpace_;
    SQLiteSchema const oldSchema_;
    RowSpace& space_;
    SQLiteSchema const schema_;
    std::vector<std::pair<Table const*, Table const*>> kept_; // new and old
    std::vector<std::string> keptNames_;                      // of tables and join tables
    std::set<std::string> keptIndexes_;                       // their statements
    std::vector<std::string> keptSearches_; // their names
    int placesOfLinks_ = 0; // tables of collected links that were made
    std::map<std::string, std::string> moved_; // old table → where it is now
};

} // namespace Tessarin
