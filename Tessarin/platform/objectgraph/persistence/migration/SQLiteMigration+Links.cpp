// Links between records: which stay where they are, and how the others are collected from every old relationship that held them.
#include "Tessarin/platform/objectgraph/persistence/migration/SQLiteMigrationPrivate.h"

#include <algorithm>
#include <fmt/format.h>

namespace Tessarin {
namespace {

auto placeOf(NSRelationshipDescription const& relationship) {
    return std::pair(std::string_view(relationship.entity()->name()), std::string_view(relationship.name()));
}

/// Of the two ends that share links the one that leads to one record; of two alike the first by name.
bool isWritten(NSRelationshipDescription const& relationship, NSRelationshipDescription const* inverse) {
    if (!inverse || inverse == &relationship) return true;
    return relationship.isToMany() != inverse->isToMany() ? !relationship.isToMany() : placeOf(relationship) < placeOf(*inverse);
}

bool contains(auto const& list, auto const& item) { return std::ranges::find(list, item) != list.end(); }

} // namespace

std::vector<SQLiteMigration::Family> SQLiteMigration::families() const {
    std::vector<Family> found;
    for (auto const& entity : mapping_.to().entities())
        for (auto const* relationship : entity->relationships()) {
            if (relationship->entity() != entity.get() || relationship->isTransient()) continue;
            if (auto const* inverse = storedInverseOf(*relationship); isWritten(*relationship, inverse))
                found.push_back({relationship, inverse, {}});
        }
    return found;
}

/// Whether all links that `other` had are links that `one` has anyway, as its old inverse's.
bool SQLiteMigration::includes(Relationship const& one, Relationship const& other) const {
    auto const sources = mapping_.sourcesOf(one);
    return std::ranges::all_of(mapping_.sourcesOf(other), [&](auto const* old) {
        auto const* inverse = storedInverseOf(*old);
        return inverse && contains(sources, inverse) && mapping_.takesAllOf(*inverse, one);
    });
}

/// Whether the links are where they belong once the tables are: in a join table that stays, or copied with their columns.
bool SQLiteMigration::stays(Family const& family) const {
    auto const& [written, other, table] = family;
    if (written->isToMany()) return contains(keptNames_, schema_.linkOf(*written)->table);
    auto const leadToOne = [&](Relationship const& relationship) {
        return std::ranges::none_of(mapping_.sourcesOf(relationship), &Relationship::isToMany);
    };
    if (!leadToOne(*written)) return false;
    if (other == written)
        return std::ranges::all_of(mapping_.sourcesOf(*written), [](auto const* old) { return storedInverseOf(*old) == old; });
    if (!other) return true;
    return includes(*written, *other) && (other->isToMany() || (leadToOne(*other) && includes(*other, *written)));
}

/// A condition that leaves out records which are still there, but not with these links.
std::string SQLiteMigration::withoutLost(Relationship const& old, Relationship const& now, std::string const& owner) const {
    std::string condition;
    for (auto const& entity : mapping_.to().entities()) {
        auto const* source = mapping_.sourceOf(*entity);
        if (!source || !source->isKindOf(old.entity())) continue;
        if (entity->isKindOf(now.entity()) && mapping_.sourceOf(*entity, now) == &old) continue;
        condition += fmt::format(" AND {} NOT IN (SELECT id FROM {}{})", owner, schema_.tableOf(*entity).name,
                                 whereEntity(schema_, *entity));
    }
    return condition;
}

void SQLiteMigration::collect(Family& family) {
    auto const& written = *family.written;
    auto const* other = family.other;
    progress_.begin(StoreProgress::Stage::Migrating, written.entity()->name(), countIn(&schema_.tableOf(*written.entity())));
    if (written.isToMany()) {
        family.table = schema_.linkOf(written)->table;
    } else {
        family.table = fmt::format("\"tessarin_links_{}\"", placesOfLinks_++);
        connection_.execute(
            fmt::format("CREATE TABLE {} (owner INTEGER NOT NULL, member INTEGER NOT NULL, position INTEGER, owner_position "
                        "INTEGER, PRIMARY KEY (owner, member)) WITHOUT ROWID",
                        family.table));
    }
    auto const sources = mapping_.sourcesOf(written);
    auto const others = other ? mapping_.sourcesOf(*other) : std::vector<Relationship const*>();
    for (auto const* old : sources) {
        auto pairs = pairsOf(*old);
        if (!others.empty() && !contains(others, storedInverseOf(*old)))
            pairs.ownerPosition = "NULL"; // it has an order of its own
        collect(family, pairs, withoutLost(*old, written, pairs.owner));
    }
    for (auto const* old : others) {
        auto const* inverse = storedInverseOf(*old);
        bool const isIncluded = inverse && contains(sources, inverse) && mapping_.takesAllOf(*inverse, written);
        if (isIncluded && (other != &written || inverse == old)) continue;
        auto const pairs = swapped(pairsOf(*old));
        collect(family, pairs, withoutLost(*old, *other, pairs.member));
    }
    if (mapping_.dropsEntities()) forgetLinksToNobody(family.table, written);
    requireSingle(family);
    orderTheRest(family);
}

void SQLiteMigration::collect(Family const& family, Pairs const& pairs, std::string const& condition) {
    auto const& [written, other, table] = family;
    std::string columns = "owner, member", values = pairs.owner + ", " + pairs.member, settings;
    auto const add = [&](char const* column, std::string const& value) {
        columns += fmt::format(", {}", column);
        values += ", " + value;
        settings += fmt::format("{0}{1} = coalesce({1}, excluded.{1})", settings.empty() ? "" : ", ", column);
    };
    if (written->isOrdered()) add("position", pairs.position);
    if (other && other != written && other->isOrdered()) add("owner_position", pairs.ownerPosition);
    connection_.execute(
        fmt::format("INSERT INTO {} ({}) SELECT {} FROM {} WHERE {} IS NOT NULL AND {} IS NOT NULL{} ORDER BY 1, 2 "
                    "ON CONFLICT (owner, member) DO {}",
                    table, columns, values, pairs.table, pairs.owner, pairs.member, condition,
                    settings.empty() ? "NOTHING" : "UPDATE SET " + settings));
}

/// Where only some of the links had a place in an order, the others come behind them.
void SQLiteMigration::orderTheRest(Family const& family) {
    auto const& [written, other, table] = family;
    auto const order = [&, &links = table](char const* end, char const* position) {
        connection_.execute(
            fmt::format("UPDATE {0} SET {2} = last.place + 1 FROM (SELECT {1} AS id, max({2}) AS place FROM {0} GROUP BY {1}) AS "
                        "last WHERE last.id = {0}.{1} AND {0}.{2} IS NULL AND last.place IS NOT NULL",
                        links, end, position));
    };
    if (written->isOrdered()) order("owner", "position");
    if (other && other != written && other->isOrdered()) order("member", "owner_position");
}

void SQLiteMigration::requireSingle(Family const& family) {
    auto const& [written, other, table] = family;
    if (!written->isToMany()) requireSingle(*written, other, table, true);
    if (other && other != written && !other->isToMany()) requireSingle(*other, written, table, false);
}

void SQLiteMigration::requireSingle(Relationship const& toOne, Relationship const* inverse, std::string const& table,
                                    bool isOwner) {
    auto const sources = mapping_.sourcesOf(toOne);
    auto const nameOfInverse = inverse ? inverse->entity()->name() + "." + inverse->name() : "";
    auto const reason = inverse == &toOne ? "it is its own inverse now, and would lead to several"
                        : std::ranges::any_of(sources, &Relationship::isToMany) ? "it led to many and leads to one"
                        : sources.empty() ? "it is the inverse of " + nameOfInverse + ", and would lead to several"
                                          : "it is the inverse of " + nameOfInverse + " now, and the two contradict each other";
    auto const *end = isOwner ? "owner" : "member", *far = isOwner ? "member" : "owner";
    requireNone(toOne.entity()->name(), toOne.name(), reason,
                fmt::format("SELECT {0} AS id, group_concat({1}, ', ') AS value FROM {2} GROUP BY {0} HAVING count(*) > 1", end,
                            far, table));
}

void SQLiteMigration::writeToOnes(Family const& family) {
    auto const& [written, other, links] = family;
    if (written->isToMany()) return;
    auto const write = [&, &from = links](Relationship const& toOne, char const* end, char const* far, std::string const& more) {
        auto const& table = schema_.tableOf(*toOne.entity()).name;
        connection_.execute(fmt::format("UPDATE {0} SET {1} = links.{2}{3} FROM {4} AS links WHERE links.{5} = {0}.id", table,
                                        schema_.columnOf(toOne), far, more, from, end));
    };
    auto const* ordered = other && other->isOrdered() ? schema_.linkOf(*other) : nullptr;
    write(*written, "owner", "member", ordered ? fmt::format(", {} = links.owner_position", ordered->position) : "");
    if (other && other != written && !other->isToMany()) write(*other, "member", "owner", "");
    connection_.execute("DROP TABLE " + links);
}

SQLiteMigration::Pairs SQLiteMigration::pairsOf(Relationship const& old) const {
    auto const* link = oldSchema_.linkOf(old);
    auto const* ordered = link || !storedInverseOf(old) ? nullptr : oldSchema_.linkOf(*storedInverseOf(old));
    if (!link)
        return {.table = currentName(oldSchema_.tableOf(*old.entity()).name),
                .owner = "id",
                .member = oldSchema_.columnOf(old),
                .ownerPosition = ordered && !ordered->position.empty() ? ordered->position : "NULL"};
    Pairs pairs{.table = currentName(link->table), .owner = link->owner, .member = link->member};
    if (!link->position.empty()) pairs.position = link->position;
    if (auto const* inverse = link->isJoinTable ? oldSchema_.inverseOf(*link) : nullptr; inverse && !inverse->position.empty())
        pairs.ownerPosition = inverse->position;
    return pairs;
}

SQLiteMigration::Pairs SQLiteMigration::swapped(Pairs pairs) {
    std::swap(pairs.owner, pairs.member);
    std::swap(pairs.position, pairs.ownerPosition);
    return pairs;
}

} // namespace Tessarin
