#include "Tessarin/platform/objectgraph/persistence/migration/StoredModelPrivate.h"

#include "Tessarin/platform/objectgraph/model/ModelAssemblerPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ValueJSONPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteVerdictPrivate.h"

#include <fmt/format.h>
#include <span>
#include <unordered_map>
#include <utility>

namespace Tessarin {
namespace {

/// Writes the description of a model right as JSON, in the form of `typedJSON`: each opening compares it with the file's. Only what
/// differs from the default is written, so that the text stays short and later additions do not change it.
class Description {
public:
    Description& begin(char bracket) {
        separate();
        text_ += bracket;
        isFirst_ = true;
        return *this;
    }
    Description& end(char bracket) {
        text_ += bracket;
        isFirst_ = false;
        return *this;
    }
    Description& key(std::string_view name) {
        separate();
        ((text_ += '"') += name) += "\":";
        isFirst_ = true; // what follows is the value
        return *this;
    }
    void add(std::string_view text) {
        separate();
        appendJSONText(text_, text);
    }
    void add(std::int64_t number) {
        separate();
        text_ += std::to_string(number);
    }
    void add(bool flag) {
        separate();
        text_ += flag ? "true" : "false";
    }
    void add(std::vector<NSPropertyDescription const*> const& properties) {
        begin('[');
        for (auto const* property : properties) add(std::string_view{property->name()});
        end(']');
    }
    void add(NSAttributeDescription const* attribute) { add(attribute->definition()); }
    void add(NSRelationshipDescription const* relationship) { add(relationship->definition()); }
    void add(AttributeDefinition const& attribute);
    void add(RelationshipDefinition const& relationship);
    void add(NSFetchIndexDescription const& index);
    void add(NSEntityDescription const& entity, std::int64_t number);

    std::string take() && { return std::move(text_); }

private:
    void separate() {
        if (!std::exchange(isFirst_, false)) text_ += ',';
    }
    void put(std::string_view name, std::string const& text) {
        if (!text.empty()) key(name).add(std::string_view{text});
    }
    void put(std::string_view name, bool flag, bool usual = false) {
        if (flag != usual) key(name).add(flag);
    }
    /// Without one, a renaming identifier is the own name.
    void putFormerName(std::string const& identifier, std::string const& name) {
        if (identifier != name) put("renamedFrom", identifier);
    }
    template <class Items> void putAll(std::string_view name, Items const& items) {
        if (items.empty()) return;
        key(name).begin('[');
        for (auto const& item : items) add(item);
        end(']');
    }

    std::string text_;
    bool isFirst_ = true; // what comes next, in its list or dictionary
};

void Description::add(AttributeDefinition const& attribute) {
    auto const& options = attribute.options;
    begin('{').key("name").add(std::string_view{attribute.name});
    key("type").add(static_cast<std::int64_t>(attribute.type));
    put("optional", options.optional, true);
    put("transient", options.transient);
    put("derived", options.derived);
    put("indexed", options.indexed);
    put("fullText", options.fullText);
    putFormerName(options.renamingIdentifier, attribute.name);
    put("hashModifier", options.versionHashModifier);
    end('}');
}

void Description::add(RelationshipDefinition const& relationship) {
    auto const& options = relationship.options;
    begin('{').key("name").add(std::string_view{relationship.name});
    key("destination").add(std::string_view{relationship.destination});
    put("toMany", relationship.toMany);
    put("inverse", options.inverse);
    put("inverseEntity", options.inverseEntity);
    put("ordered", options.ordered);
    put("optional", options.optional, true);
    put("transient", options.transient);
    putFormerName(options.renamingIdentifier, relationship.name);
    put("hashModifier", options.versionHashModifier);
    end('}');
}

void Description::add(NSFetchIndexDescription const& index) {
    begin('{').key("name").add(std::string_view{index.name});
    key("elements").begin('[');
    for (auto const& element : index.elements) {
        begin('[').add(std::string_view{element.property->name()});
        add(element.ascending);
        end(']');
    }
    end(']').end('}');
}

/// What is declared there: inherited properties come first. Its `definition` would be a copy of all.
void Description::add(NSEntityDescription const& entity, std::int64_t number) {
    auto const* parent = entity.superentity();
    begin('{').key("name").add(std::string_view{entity.name()});
    key("number").add(number);
    if (parent) put("parent", parent->name());
    put("abstract", entity.isAbstract());
    putFormerName(entity.renamingIdentifier(), entity.name());
    put("hashModifier", entity.versionHashModifier());
    putAll("attributes", entity.attributes().subspan(parent ? parent->attributes().size() : 0));
    putAll("relationships", entity.relationships().subspan(parent ? parent->relationships().size() : 0));
    putAll("unique", entity.uniquenessConstraints());
    putAll("indexes", entity.indexes());
    end('}');
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

struct Counted {
    std::string_view name, parent;
    std::size_t own; // properties
};

/// What a model will hold once it is expanded, counted before it is.
void requireBounded(std::span<Counted const> entities) {
    requireAtMost(mostEntities, entities.size(), "entities");
    std::unordered_map<std::string_view, Counted> byName;
    for (auto const& entity : entities) byName.emplace(entity.name, entity);
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
    std::vector<Counted> counted;
    Description description;
    description.begin('{').key("entities").begin('[');
    for (auto const& entity : model.entities()) {
        auto const* parent = entity->superentity();
        counted.push_back({entity->name(), parent ? std::string_view{parent->name()} : std::string_view{},
                           entity->properties().size() - (parent ? parent->properties().size() : 0)});
        description.add(*entity, entityNumbers[entity->index()]);
    }
    description.end(']').end('}');
    requireBounded(counted);
    auto text = std::move(description).take();
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
    std::vector<Counted> counted;
    for (auto const& item : entities) {
        auto const& entry = item.dictionary();
        counted.push_back({entry["name"].text(), entry["parent"].text(),
                           entry["attributes"].list().size() + entry["relationships"].list().size()});
    }
    requireBounded(counted);
    for (auto const& item : entities) {
        definition.entities.push_back(entityOf(item.dictionary()));
        stored.entityNumbers.push_back(item.dictionary()["number"].integer());
    }
    stored.model = ModelAssembler().assemble(std::move(definition)); // with whatever names there once were
    if (!stored.model) return {};
    return stored;
}

} // namespace Tessarin
