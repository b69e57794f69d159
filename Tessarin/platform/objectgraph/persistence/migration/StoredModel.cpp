#include "Tessarin/platform/objectgraph/persistence/migration/StoredModelPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/ValueJSONPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteVerdictPrivate.h"

#include <fmt/format.h>
#include <unordered_map>

namespace Tessarin {
namespace {

/// Adds only what differs from the default, so that the text stays short and later additions do not change it.
void put(Dictionary& into, char const* key, std::string const& text) {
    if (!text.empty()) into.append(key, text);
}
void put(Dictionary& into, char const* key, bool flag, bool usual = false) {
    if (flag != usual) into.append(key, flag);
}

/// Without one, a renaming identifier is the own name.
void putFormerName(Dictionary& into, std::string const& identifier, std::string const& name) {
    if (identifier != name) put(into, "renamedFrom", identifier);
}

Value described(AttributeDefinition const& attribute) {
    auto const& options = attribute.options;
    Dictionary entry{{"name", attribute.name}, {"type", static_cast<int>(attribute.type)}};
    put(entry, "optional", options.optional, true);
    put(entry, "transient", options.transient);
    put(entry, "derived", options.derived);
    put(entry, "indexed", options.indexed);
    put(entry, "fullText", options.fullText);
    putFormerName(entry, options.renamingIdentifier, attribute.name);
    put(entry, "hashModifier", options.versionHashModifier);
    return entry;
}

Value described(RelationshipDefinition const& relationship) {
    auto const& options = relationship.options;
    Dictionary entry{{"name", relationship.name}, {"destination", relationship.destination}};
    put(entry, "toMany", relationship.toMany);
    put(entry, "inverse", options.inverse);
    put(entry, "inverseEntity", options.inverseEntity);
    put(entry, "ordered", options.ordered);
    put(entry, "optional", options.optional, true);
    put(entry, "transient", options.transient);
    putFormerName(entry, options.renamingIdentifier, relationship.name);
    put(entry, "hashModifier", options.versionHashModifier);
    return entry;
}

Value described(IndexDefinition const& index) {
    List elements;
    for (auto const& element : index.elements) elements.push_back(List{element.property, element.ascending});
    return Dictionary{{"name", index.name}, {"elements", std::move(elements)}};
}

Value described(std::vector<std::string> const& names) { return List(names.begin(), names.end()); }

template <class Items> void putAll(Dictionary& into, char const* key, Items const& items) {
    List list;
    for (auto const& item : items) list.push_back(described(item));
    if (!list.empty()) into.append(key, std::move(list));
}

Value described(EntityDefinition const& entity, std::int64_t number) {
    Dictionary entry{{"name", entity.name}, {"number", number}};
    put(entry, "parent", entity.options.parent);
    put(entry, "abstract", entity.options.isAbstract);
    putFormerName(entry, entity.options.renamingIdentifier, entity.name);
    put(entry, "hashModifier", entity.options.versionHashModifier);
    putAll(entry, "attributes", entity.attributes);
    putAll(entry, "relationships", entity.relationships);
    putAll(entry, "unique", entity.uniquenessConstraints);
    putAll(entry, "indexes", entity.indexes);
    return entry;
}

// Reading.

std::string text(Dictionary const& entry, char const* key) { return std::string(entry[key].text()); }
bool flag(Dictionary const& entry, char const* key, bool usual = false) {
    return entry.contains(key) ? entry[key].boolean() : usual;
}

AttributeDefinition attributeOf(Dictionary const& entry) {
    AttributeDefinition attribute{.name = text(entry, "name"), .type = static_cast<NSAttributeType>(entry["type"].integer())};
    attribute.options = {.optional = flag(entry, "optional", true),
                         .transient = flag(entry, "transient"),
                         .indexed = flag(entry, "indexed"),
                         .fullText = flag(entry, "fullText"),
                         .derived = flag(entry, "derived"),
                         .renamingIdentifier = text(entry, "renamedFrom"),
                         .versionHashModifier = text(entry, "hashModifier")};
    return attribute;
}

RelationshipDefinition relationshipOf(Dictionary const& entry) {
    RelationshipDefinition relationship{
        .name = text(entry, "name"), .destination = text(entry, "destination"), .toMany = flag(entry, "toMany")};
    relationship.options = {.inverse = text(entry, "inverse"),
                            .inverseEntity = text(entry, "inverseEntity"),
                            .optional = flag(entry, "optional", true),
                            .ordered = flag(entry, "ordered"),
                            .transient = flag(entry, "transient"),
                            .renamingIdentifier = text(entry, "renamedFrom"),
                            .versionHashModifier = text(entry, "hashModifier")};
    return relationship;
}

EntityDefinition entityOf(Dictionary const& entry) {
    EntityDefinition entity{.name = text(entry, "name")};
    entity.options = {.parent = text(entry, "parent"),
                      .isAbstract = flag(entry, "abstract"),
                      .renamingIdentifier = text(entry, "renamedFrom"),
                      .versionHashModifier = text(entry, "hashModifier")};
    for (auto const& item : entry["attributes"].list()) entity.attributes.push_back(attributeOf(item.dictionary()));
    for (auto const& item : entry["relationships"].list()) entity.relationships.push_back(relationshipOf(item.dictionary()));
    for (auto const& item : entry["unique"].list()) {
        auto& constraint = entity.uniquenessConstraints.emplace_back();
        for (auto const& name : item.list()) constraint.emplace_back(name.text());
    }
    for (auto const& item : entry["indexes"].list()) {
        auto& index = entity.indexes.emplace_back(IndexDefinition{.name = text(item.dictionary(), "name")});
        for (auto const& element : item.dictionary()["elements"].list())
            if (element.list().size() == 2)
                index.elements.push_back({std::string(element.list()[0].text()), element.list()[1].boolean()});
    }
    return entity;
}

// A short text can tell of a large model, since every entity has its ancestors' properties too. Far above what people make.
constexpr std::size_t mostBytes = 4 << 20, mostEntities = 10'000, mostProperties = 200'000;
constexpr std::size_t mostAncestors = 100; // as many as a model may have

void requireAtMost(std::size_t most, std::size_t count, char const* what) {
    if (count > most)
        throw Refused::because(fmt::format("the description of its model is too large: {} {}, at most {}", count, what, most));
}

/// What a model will hold once it is expanded, counted before it is.
void requireBounded(List const& entities) {
    struct Counted {
        std::size_t own;
        std::string_view parent;
    };
    requireAtMost(mostEntities, entities.size(), "entities");
    std::unordered_map<std::string_view, Counted> byName;
    for (auto const& item : entities) {
        auto const& entry = item.dictionary();
        byName.emplace(entry["name"].text(),
                       Counted{entry["attributes"].list().size() + entry["relationships"].list().size(), entry["parent"].text()});
    }
    std::size_t properties = 0;
    for (auto const& [name, counted] : byName) {
        auto const* each = &counted;
        for (std::size_t depth = 0; each && depth <= mostAncestors; ++depth) {
            properties += each->own;
            auto const parent = byName.find(each->parent);
            each = parent == byName.end() ? nullptr : &parent->second;
        }
    }
    requireAtMost(mostProperties, properties, "properties with those that are inherited");
}

} // namespace

std::string storedModelText(NSManagedObjectModel const& model, std::vector<std::int64_t> const& entityNumbers) {
    List entities;
    for (auto const& entity : model.entities())
        entities.push_back(described(entity->definition(), entityNumbers[entity->index()]));
    requireBounded(entities);
    auto text = typedJSON(Dictionary{{"entities", std::move(entities)}});
    requireAtMost(mostBytes, text.size(), "bytes");
    return text;
}

std::optional<StoredModel> storedModelOfText(std::string_view text) {
    requireAtMost(mostBytes, text.size(), "bytes");
    auto const value = valueOfTypedJSON(text);
    if (!value) return {};
    StoredModel stored;
    ModelDefinition definition;
    auto const& entities = value->dictionary()["entities"].list();
    requireBounded(entities);
    for (auto const& item : entities) {
        definition.entities.push_back(entityOf(item.dictionary()));
        stored.entityNumbers.push_back(item.dictionary()["number"].integer());
    }
    stored.model = NSManagedObjectModel::modelWithDefinition(std::move(definition));
    if (!stored.model) return {};
    return stored;
}

} // namespace Tessarin
