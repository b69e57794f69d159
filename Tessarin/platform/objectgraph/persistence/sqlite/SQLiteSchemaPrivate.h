#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/RowCachePrivate.h"
#include "Tessarin/platform/objectgraph/query/SQLSchemaPrivate.h"
#include <string>
#include <unordered_set>
#include <vector>

namespace Tessarin {

/// How the entities of a model stand in tables, columns and indexes; a pure function of the model and of the numbers that
/// the file gave to its entities. All names are quoted, ready for SQL. docs/store-format.md tells the rules. Immutable.
class TESSARIN_API SQLiteSchema final : public SQLSchema {
public:
    struct Column {
        NSPropertyDescription const* property; // null: the position in an ordered relationship
        std::string name;
        CellType type;
    };
    /// The records of a root entity and all its sub-entities.
    struct Table {
        NSEntityDescription const* root = nullptr;
        std::string name;
        bool hasEntityColumn = false; // only where there are sub-entities
        std::vector<Column> columns; // beside id, entity and version
    };
    /// Where the members of a to-many relationship are found.
    struct Link {
        NSRelationshipDescription const* relationship = nullptr;
        std::string table;
        std::string owner;
        std::string member;
        std::string position; // empty: without order
        bool isJoinTable = false; // false: the to-one column at the other end
        bool isWrittenHere = false; // of a join table that two relationships share, the one whose changes are written
    };
    struct Index {
        std::string name;
        std::string table;
        std::string statement; // CREATE INDEX …
        bool isUnique = false;
        NSEntityDescription const* entity = nullptr; // of a uniqueness constraint
        std::vector<NSPropertyDescription const*> properties;
        std::vector<std::string> columns; // quoted
        std::string condition = "true"; // of the records that it is over
    };

    /// The index of the words in a table's texts.
    struct Search {
        Table const* table = nullptr;
        std::string name;
        std::vector<NSAttributeDescription const*> attributes;
        std::vector<std::string> columns; // of the index, which bear the names of the table's
        std::string statement; // CREATE VIRTUAL TABLE …
        std::string insertion, deletion; // of one record: its key and its texts
    };
    /// Whether the file's indexes of words are used. Those of a file that cannot be written may be of other rules.
    enum class Searches { Used, Ignored };

    /// `entityNumbers` by index of the entity in the model.
    SQLiteSchema(RowSpace& space, std::vector<std::int64_t> entityNumbers, Searches searches = Searches::Used);

    RowSpace& space() const noexcept { return space_; }
    std::vector<Table> const& tables() const noexcept { return tables_; }
    Table const& tableOf(NSEntityDescription const& entity) const noexcept { return tables_[tableOfEntity_[entity.index()]]; }
    /// The column of a stored attribute or to-one relationship; empty for a property that has none.
    std::string const& columnOf(NSPropertyDescription const& property) const noexcept {
        return columns_[property.entity()->index()][property.index()];
    }
    /// Null for a to-one and for a transient relationship.
    Link const* linkOf(NSRelationshipDescription const& relationship) const noexcept;
    std::vector<Link> const& links() const noexcept { return links_; }
    std::vector<Index> const& indexes() const noexcept { return indexes_; }

    std::vector<Search> const& searches() const noexcept { return searches_; }
    /// Null for an entity in whose table no texts are searched.
    Search const* searchOf(NSEntityDescription const& entity) const noexcept;

    std::int64_t numberOf(NSEntityDescription const& entity) const noexcept { return numbers_[entity.index()]; }
    NSEntityDescription const* entityNumbered(std::int64_t number) const noexcept;
    /// The numbers of the entity and its descendants, as "1, 2, 3".
    std::string numbersInTreeOf(NSEntityDescription const& entity) const;

    std::string tableNameOf(NSEntityDescription const& entity) const override { return tableOf(entity).name; }
    std::string columnNameOf(NSPropertyDescription const& property) const override { return columnOf(property); }
    std::optional<Members> membersOf(NSRelationshipDescription const& relationship) const override;
    std::int64_t keyOf(Value const& value) const override;
    std::string searchTableOf(NSAttributeDescription const& attribute) const override;
    bool searchesAll(std::span<NSAttributeDescription const* const> attributes) const override;

    static std::string createTable(Table const& table);
    static std::string addColumn(Table const& table, Column const& column);
    static std::string createJoinTable(Link const& link, Link const* inverse);
    /// Everything that makes an empty file hold this schema.
    std::vector<std::string> createStatements() const;
    Link const* inverseOf(Link const& link) const noexcept;

private:
    class Names {
    public:
        std::string take(std::string name);

    private:
        std::unordered_set<std::string> taken_; // in lower case, as SQLite compares
    };
    void addTables(Names& names);
    void addColumns(Table& table, NSEntityDescription const& entity, Names& names);
    void addLinks(Names& names);
    Link columnLink(NSRelationshipDescription const& relationship);
    Link joinLink(NSRelationshipDescription const& relationship, Names& names);
    void addIndexes(Names& names);
    void addSearches();
    void addIndex(Names& names, Index index, std::string_view label, std::string const& columns,
                  std::string const& condition = {});

    RowSpace& space_;
    std::vector<std::int64_t> numbers_;
    std::vector<Table> tables_;
    std::vector<std::size_t> tableOfEntity_;
    std::vector<std::vector<std::string>> columns_; // [entity][property]
    std::vector<Link> links_;
    std::vector<std::vector<int>> linkOf_; // [entity][property], -1: none
    std::vector<Index> indexes_;
    std::vector<Search> searches_; // in the order of the tables
};

/// An SQL identifier in quotes.
TESSARIN_API std::string quoted(std::string_view name);
std::string unquoted(std::string_view identifier);

} // namespace Tessarin
