#pragma once
#include "Tessarin/platform/foundation/predicates/NSExpression.h"
#include "Tessarin/platform/objectgraph/query/SQLSchemaPrivate.h"
#include <map>

namespace Tessarin {

/// What an SQL expression yields, as predicates tell kinds of values apart.
enum class SQLKind { Number, Decimal, Date, Text, URL, Data, UUID, Object };

/// An SQL expression without parameters; NULL where the value is absent.
struct SQLOperand {
    std::string sql;
    SQLKind kind = SQLKind::Number;
    NSEntityDescription const* entity = nullptr; // of an object
    NSAttributeDescription const* attribute = nullptr; // of a value that is an attribute's
    std::string alias = {};                            // the table of that
};

/// A table in a query, and the tables that key paths from its records led to.
struct SQLScope {
    NSEntityDescription const* entity = nullptr;
    std::string alias;
    std::map<std::string, std::string> aliases = {}; // joined: column of the to-one → alias of its destination
    std::string joins = {};                          // " LEFT JOIN …"
};

/// The members that a key path through one to-many relationship leads to, as the body of a subquery.
struct SQLMembers {
    SQLScope scope;
    SQLOperand member;
    std::string from;   // "FROM … JOIN …", without the joins of `scope`
    std::string condition; // that ties it to its owner
};

/// Finds the expressions for key paths. What a schema cannot say is absent.
class SQLPaths {
public:
    explicit SQLPaths(SQLSchema const& schema) : schema_(schema) {}

    /// The path leads to one value: over to-one relationships to an attribute, to a to-one, or to the @count of a to-many.
    std::optional<SQLOperand> operand(std::span<std::string const> path, SQLScope& scope);
    /// The path leads through exactly one to-many relationship.
    std::optional<SQLMembers> members(std::span<std::string const> path, SQLScope& scope);

    std::string newAlias() { return "t" + std::to_string(++aliases_); }

private:
    SQLOperand itself(SQLScope const& scope) const { return {scope.alias + ".id", SQLKind::Object, scope.entity}; }
    std::optional<SQLOperand> property(NSEntityDescription const& entity, std::string const& alias,
                                       std::string const& name) const;
    std::string join(SQLScope& scope, SQLOperand const& toOne);
    std::optional<SQLOperand> count(SQLOperand const& owner, NSRelationshipDescription const& relationship);

    SQLSchema const& schema_;
    int aliases_ = 0;
};

/// The kind of an attribute's values; absent for those that cannot be stored.
std::optional<SQLKind> sqlKindOf(NSAttributeType type);

} // namespace Tessarin
