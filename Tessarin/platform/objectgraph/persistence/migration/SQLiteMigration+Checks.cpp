// What the records must be like, looked up before anything is moved and after all of it has been.
#include "Tessarin/platform/objectgraph/persistence/migration/SQLiteMigrationPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteVerdictPrivate.h"

#include <algorithm>
#include <fmt/format.h>

namespace Tessarin {

void SQLiteMigration::requireNone(std::string const& entity, std::string const& property, std::string const& reason,
                                  std::string const& rows) {
    RecordsInTheWay records;
    {
        auto const query = connection_.use(fmt::format("SELECT count(*), min(id), substr(value, 1, 60) FROM ({})", rows));
        if (query->step()) records = {query->integer(0), query->integer(1), std::string(query->text(2))};
    }
    if (records.count != 0) throw Refused::noRule(entity, property, reason, records);
}

/// The records of an old entity that lead somewhere, as `id` and `value`.
std::string SQLiteMigration::linkedTo(Relationship const& old, NSEntityDescription const& owner) const {
    auto const pairs = pairsOf(old);
    return fmt::format(
        "SELECT {0} AS id, {1} AS value FROM {2} WHERE {1} IS NOT NULL AND {0} IN (SELECT id FROM {3}{4}) GROUP BY {0}",
        pairs.owner, pairs.member, pairs.table, currentName(oldSchema_.tableOf(owner).name), whereEntity(oldSchema_, owner));
}

void SQLiteMigration::checkBefore(MigrationCondition const& condition) {
    auto const& source = *mapping_.sourceOf(*condition.entity);
    auto const rows = oldSchema_.tableOf(source).name + whereEntity(oldSchema_, source);
    auto const require = [&](std::string const& selected) {
        requireNone(condition.entity->name(), condition.property ? condition.property->name() : "", condition.reason, selected);
    };
    auto const* old = condition.property ? mapping_.sourceOf(*condition.entity, *condition.property) : nullptr;
    switch (condition.kind) {
    case MigrationCondition::Kind::NoRecords: return require("SELECT id, NULL AS value FROM " + rows);
    case MigrationCondition::Kind::NoValues: {
        if (auto const* relationship = old->asRelationship()) return require(linkedTo(*relationship, source));
        auto const& column = oldSchema_.columnOf(*old);
        return require(fmt::format("SELECT id, quote({0}) AS value FROM {1} AND {0} IS NOT NULL", column, rows));
    }
    case MigrationCondition::Kind::ExactValues:
        return require(fmt::format(
            "SELECT id, quote({0}) AS value FROM {1} AND {0} IS NOT NULL AND tessarin_converted({0}, {2}, {3}) IS NULL",
            oldSchema_.columnOf(*old), rows, static_cast<int>(old->asAttribute()->attributeType()),
            static_cast<int>(condition.property->asAttribute()->attributeType())));
    default: return;
    }
}

void SQLiteMigration::checkAfter(MigrationCondition const& condition) {
    if (condition.kind != MigrationCondition::Kind::NoAbsence) return;
    auto const& entity = *condition.entity;
    requireNone(entity.name(), condition.property->name(), condition.reason,
                fmt::format("SELECT id, NULL AS value FROM {}{} AND {} IS NULL", schema_.tableOf(entity).name,
                            whereEntity(schema_, entity), schema_.columnOf(*condition.property)));
}

/// Every record that a relationship leads to must still be one that it may lead to.
void SQLiteMigration::checkDestinations(Family const& family) {
    checkDestinations(*family.written, family.isCollected() ? family.other : nullptr);
    if (family.other && family.other != family.written)
        checkDestinations(*family.other, family.isCollected() ? family.written : nullptr);
}

void SQLiteMigration::checkDestinations(Relationship const& relationship, Relationship const* collectedFrom) {
    auto const* link = schema_.linkOf(relationship);
    auto const table = link ? link->table : schema_.tableOf(*relationship.entity()).name;
    auto const owner = link ? link->owner : "id", member = link ? link->member : schema_.columnOf(relationship);
    auto const require = [&](NSEntityDescription const& strayed) {
        auto const was = mapping_.sourceOf(strayed)->name();
        auto const reason =
            fmt::format("it may have led to a {}, which is no {} now", was, relationship.destinationEntity()->name());
        requireNone(
            relationship.entity()->name(), relationship.name(), reason,
            fmt::format("SELECT {0} AS id, {1} AS value FROM {2} WHERE {0} IS NOT NULL AND {1} IN (SELECT id FROM {3}{4})", owner,
                        member, table, schema_.tableOf(strayed).name, whereEntity(schema_, strayed)));
    };
    for (auto const* old : mapping_.sourcesOf(relationship))
        for (auto const* strayed : mapping_.strayedBetween(*old, relationship)) require(*strayed);
    if (!collectedFrom) return;
    for (auto const& entity : mapping_.to().entities())
        if (mapping_.sourceOf(*entity) && entity->isKindOf(collectedFrom->entity()) &&
            !entity->isKindOf(relationship.destinationEntity()))
            require(*entity);
}

} // namespace Tessarin
