#include "Tessarin/platform/objectgraph/query/SQLOperandPrivate.h"

#include <fmt/format.h>

namespace Tessarin {

std::optional<SQLKind> sqlKindOf(NSAttributeType type) {
    switch (type) {
    case NSAttributeType::Boolean:
    case NSAttributeType::Integer16:
    case NSAttributeType::Integer32:
    case NSAttributeType::Integer64:
    case NSAttributeType::Double:
    case NSAttributeType::Float: return SQLKind::Number;
    case NSAttributeType::Decimal: return SQLKind::Decimal;
    case NSAttributeType::Date: return SQLKind::Date;
    case NSAttributeType::String: return SQLKind::Text;
    case NSAttributeType::URI: return SQLKind::URL;
    case NSAttributeType::BinaryData: return SQLKind::Data;
    case NSAttributeType::UUID: return SQLKind::UUID;
    default: return {};
    }
}

std::optional<SQLOperand> SQLPaths::property(NSEntityDescription const& entity, std::string const& alias,
                                             std::string const& name) const {
    auto const* property = entity.propertyNamed(name);
    auto const column = property ? schema_.columnNameOf(*property) : std::string();
    if (column.empty()) return {};
    auto sql = alias + "." + column;
    if (auto const* relationship = property->asRelationship())
        return SQLOperand{std::move(sql), SQLKind::Object, relationship->destinationEntity()};
    auto const kind = sqlKindOf(property->asAttribute()->attributeType());
    if (!kind) return {};
    return SQLOperand{std::move(sql), *kind, nullptr, property->asAttribute(), alias};
}

/// The alias of the table that a to-one leads to; joined once, whoever asks.
std::string SQLPaths::join(SQLScope& scope, SQLOperand const& toOne) {
    auto& alias = scope.aliases[toOne.sql];
    if (!alias.empty()) return alias;
    alias = newAlias();
    scope.joins += fmt::format(" LEFT JOIN {0} AS {1} ON {1}.id = {2}", schema_.tableNameOf(*toOne.entity), alias, toOne.sql);
    return alias;
}

std::optional<SQLOperand> SQLPaths::operand(std::span<std::string const> path, SQLScope& scope) {
    auto current = itself(scope);
    auto alias = scope.alias;
    for (std::size_t at = 0; at < path.size(); ++at) {
        if (!current.entity) return {};
        auto const* property = current.entity->propertyNamed(path[at]);
        auto const* relationship = property ? property->asRelationship() : nullptr;
        if (relationship && relationship->isToMany())
            return at + 2 == path.size() && path[at + 1] == "@count" ? count(current, *relationship) : std::nullopt;
        if (at > 0) alias = join(scope, current);
        auto next = this->property(*current.entity, alias, path[at]);
        if (!next) return {};
        current = std::move(*next);
    }
    return current;
}

std::optional<SQLOperand> SQLPaths::count(SQLOperand const& owner, NSRelationshipDescription const& relationship) {
    auto const members = schema_.membersOf(relationship);
    if (!members) return {};
    auto const alias = newAlias();
    return SQLOperand{
        fmt::format("CASE WHEN {0} IS NULL THEN NULL ELSE (SELECT count(*) FROM {1} AS {2} WHERE {2}.{3} = {0}) END", owner.sql,
                    members->table, alias, members->owner)};
}

std::optional<SQLMembers> SQLPaths::members(std::span<std::string const> path, SQLScope& scope) {
    auto const* entity = scope.entity;
    std::size_t at = 0;
    NSRelationshipDescription const* relationship = nullptr;
    for (; at < path.size() && entity; ++at) {
        auto const* property = entity->propertyNamed(path[at]);
        relationship = property ? property->asRelationship() : nullptr;
        if (!relationship) return {};
        if (relationship->isToMany()) break;
        entity = relationship->destinationEntity();
    }
    if (!relationship || !relationship->isToMany()) return {};
    auto const owner = operand(path.first(at), scope);
    auto const stored = schema_.membersOf(*relationship);
    if (!owner || !stored) return {};

    auto const rest = path.subspan(at + 1);
    auto const table = newAlias();
    SQLMembers found;
    found.from = fmt::format("FROM {} AS {}", stored->table, table);
    found.condition = fmt::format("{}.{} = {}", table, stored->owner, owner->sql);
    found.scope = {.entity = relationship->destinationEntity(), .alias = table};
    if (!stored->isMembersTable) {
        if (rest.empty()) {
            found.member = {fmt::format("{}.{}", table, stored->member), SQLKind::Object, relationship->destinationEntity()};
            return found;
        }
        found.scope.alias = newAlias();
        found.from += fmt::format(" JOIN {0} AS {1} ON {1}.id = {2}.{3}", schema_.tableNameOf(*relationship->destinationEntity()),
                                  found.scope.alias, table, stored->member);
    }
    auto member = operand(rest, found.scope);
    if (!member) return {};
    found.member = std::move(*member);
    return found;
}

} // namespace Tessarin
