#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RelationshipStoragePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSManagedObjectID.h"

#include <algorithm>
#include <iterator>
#include <fmt/format.h>

namespace Tessarin {
namespace {

std::string lowered(std::string text) {
    for (auto& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

/// FTS5 has columns of its own by these names.
std::string columnFor(NSPropertyDescription const& property) {
    auto const* attribute = property.asAttribute();
    auto const lower = attribute && attribute->isFullText() ? lowered(property.name()) : std::string();
    return lower == "rank" || lower == "rowid" ? property.name() + '_' : property.name();
}

} // namespace

std::string unquoted(std::string_view name) {
    std::string plain;
    for (std::size_t at = 1; at + 1 < name.size(); ++at) {
        plain += name[at];
        if (name[at] == '"') ++at;
    }
    return plain;
}

std::string quoted(std::string_view name) {
    std::string text = "\"";
    for (auto const c : name) {
        if (c == '"') text += '"';
        text += c;
    }
    return text + '"';
}

/// Underscores are appended until the name is free.
std::string SQLiteSchema::Names::take(std::string name) {
    auto lower = lowered(name);
    if (name.empty() || lower.starts_with("sqlite_") || lower.starts_with("tessarin_")) {
        name.insert(0, "_");
        lower.insert(0, "_");
    }
    while (!taken_.insert(lower).second) {
        name += '_';
        lower += '_';
    }
    return name;
}

SQLiteSchema::SQLiteSchema(RowSpace& space, std::vector<std::int64_t> entityNumbers, Searches searches)
    : space_(space), numbers_(std::move(entityNumbers)) {
    auto const& entities = space.model().entities();
    tableOfEntity_.resize(entities.size());
    columns_.resize(entities.size());
    linkOf_.resize(entities.size());
    for (auto const& entity : entities) {
        columns_[entity->index()].resize(entity->properties().size());
        linkOf_[entity->index()].assign(entity->properties().size(), -1);
    }
    Names names;
    addTables(names);
    addLinks(names);
    addIndexes(names);
    if (searches == Searches::Used) addSearches();
}

void SQLiteSchema::addTables(Names& names) {
    for (auto const& entity : space_.model().entities()) {
        if (entity->superentity()) continue;
        Table table;
        table.root = entity.get();
        table.name = quoted(names.take(entity->name()));
        table.hasEntityColumn = !entity->subentities().empty();
        Names columns;
        for (auto const* reserved : {"id", "entity", "version"}) columns.take(reserved);
        addColumns(table, *entity, columns);
        // What may be large comes last: a column behind it would have to be looked for in further pages.
        std::ranges::stable_partition(table.columns, [](Column const& column) { return column.type != CellType::Bytes; });
        tables_.push_back(std::move(table));
    }
}

void SQLiteSchema::addColumns(Table& table, NSEntityDescription const& entity, Names& names) {
    tableOfEntity_[entity.index()] = tables_.size();
    for (auto const& cell : space_.layoutOf(entity).cells()) {
        if (cell.property->entity() != &entity) continue;
        auto const name = quoted(names.take(columnFor(*cell.property)));
        columns_[entity.index()][cell.property->index()] = name;
        table.columns.push_back({cell.property, name, cell.type});
        auto const* relationship = cell.property->asRelationship();
        if (!relationship || !relationship->isReciprocal() || !relationship->inverseRelationship()->isOrdered()) continue;
        table.columns.push_back({nullptr, quoted(names.take(cell.property->name() + "_position")), CellType::Integer});
    }
    for (auto const* child : entity.subentities()) addColumns(table, *child, names);
}

void SQLiteSchema::addLinks(Names& names) {
    for (bool const canonical : {true, false}) // a shared table is named by the one side and then found by the other
        for (auto const& entity : space_.model().entities())
            for (auto const* relationship : entity->relationships()) {
                if (relationship->entity() != entity.get() || !relationship->isToMany() || relationship->isTransient()) continue;
                if (writesItsLinks(*relationship) != canonical) continue;
                linkOf_[entity->index()][relationship->index()] = static_cast<int>(links_.size());
                links_.push_back(isKeptInInverse(*relationship) ? columnLink(*relationship) : joinLink(*relationship, names));
            }
}

SQLiteSchema::Link SQLiteSchema::columnLink(NSRelationshipDescription const& relationship) {
    auto const& inverse = *relationship.inverseRelationship();
    auto const& table = tableOf(*inverse.entity());
    Link link{.relationship = &relationship, .table = table.name, .owner = columnOf(inverse), .member = "id"};
    if (relationship.isOrdered()) { // its column follows the to-one's
        auto const column = std::ranges::find(table.columns, &inverse, &Column::property);
        link.position = std::next(column)->name;
    }
    return link;
}

SQLiteSchema::Link SQLiteSchema::joinLink(NSRelationshipDescription const& relationship, Names& names) {
    Link link{.relationship = &relationship, .isJoinTable = true};
    if (writesItsLinks(relationship)) {
        link.table = quoted(names.take(unquoted(tableOf(*relationship.entity()).name) + "_" + relationship.name()));
        link.owner = "owner";
        link.member = "member";
        if (relationship.isOrdered()) link.position = "position";
        link.isWrittenHere = true;
        return link;
    }
    link.table = linkOf(*relationship.inverseRelationship())->table;
    link.owner = "member";
    link.member = "owner";
    if (relationship.isOrdered()) link.position = "owner_position";
    return link;
}

SQLiteSchema::Link const* SQLiteSchema::linkOf(NSRelationshipDescription const& relationship) const noexcept {
    auto const at = linkOf_[relationship.entity()->index()][relationship.index()];
    return at < 0 ? nullptr : &links_[static_cast<std::size_t>(at)];
}

SQLiteSchema::Link const* SQLiteSchema::inverseOf(Link const& link) const noexcept {
    auto const* inverse = link.relationship->isReciprocal() ? link.relationship->inverseRelationship() : nullptr;
    auto const* found = inverse && inverse != link.relationship ? linkOf(*inverse) : nullptr;
    return found && found->table == link.table ? found : nullptr;
}

std::optional<SQLSchema::Members> SQLiteSchema::membersOf(NSRelationshipDescription const& relationship) const {
    auto const* link = linkOf(relationship);
    if (!link) return {};
    return Members{link->table, link->owner, link->member, !link->isJoinTable};
}

std::int64_t SQLiteSchema::keyOf(Value const& value) const { return recordKeyOf(value, space_.identities()); }

SQLiteSchema::Search const* SQLiteSchema::searchOf(NSEntityDescription const& entity) const noexcept {
    auto const found = std::ranges::find(searches_, &tableOf(entity), &Search::table);
    return found == searches_.end() ? nullptr : &*found;
}

std::string SQLiteSchema::searchTableOf(NSAttributeDescription const& attribute) const {
    auto const* search = attribute.isFullText() ? searchOf(*attribute.entity()) : nullptr;
    return search ? search->name : std::string();
}

bool SQLiteSchema::searchesAll(std::span<NSAttributeDescription const* const> attributes) const {
    auto const* search = searchOf(*attributes.front()->entity());
    return search && std::ranges::all_of(search->attributes, [&](auto const* each) {
               return std::ranges::find(attributes, each) != attributes.end();
           });
}

NSEntityDescription const* SQLiteSchema::entityNumbered(std::int64_t number) const noexcept {
    auto const at = std::ranges::find(numbers_, number) - numbers_.begin();
    return static_cast<std::size_t>(at) < numbers_.size() ? space_.model().entities()[static_cast<std::size_t>(at)].get()
                                                          : nullptr;
}

std::string SQLiteSchema::numbersInTreeOf(NSEntityDescription const& entity) const {
    auto text = std::to_string(numberOf(entity));
    for (auto const* child : entity.subentities()) text += ", " + numbersInTreeOf(*child);
    return text;
}

} // namespace Tessarin
