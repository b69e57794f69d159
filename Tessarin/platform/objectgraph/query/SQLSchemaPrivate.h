#pragma once
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include <span>
#include <string>

namespace Tessarin {

/// Where records are found, as the translation of queries needs to know it. All names are quoted, ready for SQL; the key of
/// a record is the column `id` of its table.
class SQLSchema {
public:
    /// The table of a to-many relationship: rows of owner and member.
    struct Members {
        std::string table;
        std::string owner;
        std::string member;
        bool isMembersTable = false; // it is the members' own table: `member` is their id
    };
    virtual std::string tableNameOf(NSEntityDescription const& entity) const = 0;
    /// The column of a stored attribute or to-one relationship; empty when there is none.
    virtual std::string columnNameOf(NSPropertyDescription const& property) const = 0;
    /// Absent when the relationship is not stored.
    virtual std::optional<Members> membersOf(NSRelationshipDescription const& relationship) const = 0;
    /// The key of the record that a value stands for; 0 when it stands for none, negative when it was never saved.
    virtual std::int64_t keyOf(Value const& value) const = 0;
    /// The table of FTS5 that has the attribute's words, in a column of the same name; empty when there is none.
    virtual std::string searchTableOf(NSAttributeDescription const& attribute) const = 0;
    /// Whether those, of one such table, are all that it has.
    virtual bool searchesAll(std::span<NSAttributeDescription const* const> attributes) const = 0;

protected:
    ~SQLSchema() = default;
};

} // namespace Tessarin
