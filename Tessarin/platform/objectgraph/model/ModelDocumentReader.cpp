#include "Tessarin/platform/objectgraph/model/ModelDocumentReaderPrivate.h"

#include "Tessarin/platform/objectgraph/model/NSAttributeDescription.h"

#include <pugixml.hpp>

#include <algorithm>
#include <charconv>

namespace Tessarin {
namespace {

constexpr std::size_t deepestComposite = 16; // deeper ones hold themselves
constexpr std::size_t mostComposed = 10000;  // composites that double at each level would fill the memory

struct TypeName {
    std::string_view text;
    NSAttributeType type;
};
constexpr TypeName typeNames[] = {
    {"", NSAttributeType::Undefined},
    {"Undefined", NSAttributeType::Undefined},
    {"String", NSAttributeType::String},
    {"Boolean", NSAttributeType::Boolean},
    {"Date", NSAttributeType::Date},
    {"Integer 16", NSAttributeType::Integer16},
    {"Integer 32", NSAttributeType::Integer32},
    {"Integer 64", NSAttributeType::Integer64},
    {"Double", NSAttributeType::Double},
    {"Float", NSAttributeType::Float},
    {"Decimal", NSAttributeType::Decimal},
    {"Binary", NSAttributeType::BinaryData},
    {"URI", NSAttributeType::URI},
    {"UUID", NSAttributeType::UUID},
    {"Transformable", NSAttributeType::Transformable},
};

bool yes(pugi::xml_node const& element, char const* name) { return std::string_view{element.attribute(name).value()} == "YES"; }
std::string text(pugi::xml_node const& element, char const* name) { return element.attribute(name).value(); }

UserInfo userInfo(pugi::xml_node const& element) {
    UserInfo info;
    for (auto const entry : element.child("userInfo").children("entry"))
        info.insert_or_assign(text(entry, "key"), text(entry, "value"));
    return info;
}

std::optional<double> bound(pugi::xml_node const& element, char const* name) {
    auto const number = attributeValue(NSAttributeType::Double, text(element, name));
    return number.isNumber() ? std::optional(number.number()) : std::nullopt;
}

std::size_t count(pugi::xml_node const& element, char const* name) {
    std::string_view const digits = element.attribute(name).value();
    std::size_t number = 0;
    auto const [end, problem] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return problem == std::errc{} && end == digits.data() + digits.size() ? number : 0;
}

NSDeleteRule deleteRule(std::string_view name) {
    if (name == "Cascade") return NSDeleteRule::Cascade;
    if (name == "Deny") return NSDeleteRule::Deny;
    return name == "No Action" ? NSDeleteRule::NoAction : NSDeleteRule::Nullify;
}

Value defaultValue(pugi::xml_node const& element, NSAttributeType type) {
    if (type == NSAttributeType::Date) {
        auto const seconds = bound(element, "defaultDateTimeInterval");
        return seconds ? Value::date(*seconds) : Value();
    }
    auto const written = element.attribute("defaultValueString");
    // A text stands for itself or for a number, an identifier, an address; never for a transformable's value.
    if (!written || type == NSAttributeType::Undefined || type == NSAttributeType::Transformable) return {};
    return attributeValue(type, written.value());
}

std::vector<std::vector<std::string>> uniquenessConstraints(pugi::xml_node entity) {
    std::vector<std::vector<std::string>> result;
    for (auto const group : entity.children("uniquenessConstraints"))
        for (auto const element : group.children("uniquenessConstraint")) {
            auto& names = result.emplace_back();
            for (auto const constraint : element.children("constraint")) names.push_back(text(constraint, "value"));
        }
    return result;
}

std::vector<IndexDefinition> indexes(pugi::xml_node entity) {
    std::vector<IndexDefinition> result;
    for (auto const element : entity.children("fetchIndex")) {
        auto& index = result.emplace_back(IndexDefinition{text(element, "name"), {}});
        for (auto const part : element.children("fetchIndexElement"))
            index.elements.push_back({text(part, "property"), text(part, "order") != "descending"});
    }
    for (auto const group : entity.children("compoundIndexes")) // the older form
        for (auto const element : group.children("compoundIndex")) {
            auto& index = result.emplace_back();
            for (auto const part : element.children("index")) {
                index.elements.push_back({text(part, "value"), true});
                index.name += (index.name.empty() ? "" : "_") + text(part, "value");
            }
        }
    return result;
}

std::vector<FetchRequestTemplate> templates(pugi::xml_node model) {
    std::vector<FetchRequestTemplate> result;
    for (auto const element : model.children("fetchRequest"))
        result.push_back({text(element, "name"), text(element, "entity"), text(element, "predicateString")});
    return result;
}

} // namespace

std::optional<ModelDefinition> ModelDocumentReader::read() {
    ModelDefinition definition;
    definition.versionIdentifier = text(model_, "userDefinedModelVersionIdentifier");
    for (auto const element : model_.children("entity")) definition.entities.push_back(entity(element));
    for (auto const element : model_.children("configuration")) {
        auto& members = definition.configurations[text(element, "name")];
        for (auto const member : element.children("memberEntity")) members.push_back(text(member, "name"));
    }
    definition.fetchRequestTemplates = templates(model_);
    return problem_.empty() ? std::optional(std::move(definition)) : std::nullopt;
}

EntityDefinition ModelDocumentReader::entity(pugi::xml_node const& element) {
    EntityDefinition entity{.name = requiredName(element)};
    auto& options = entity.options;
    options.className = text(element, "representedClassName");
    if (options.className.starts_with('.')) options.className.erase(0, 1); // ".C" is C of the application itself
    options.parent = text(element, "parentEntity");
    options.isAbstract = yes(element, "isAbstract");
    options.renamingIdentifier = text(element, "elementID");
    options.versionHashModifier = text(element, "versionHashModifier");
    options.userInfo = userInfo(element);
    for (auto const child : element.children("attribute")) attribute(entity, child);
    for (auto const child : element.children("relationship")) entity.relationships.push_back(relationship(child));
    entity.uniquenessConstraints = uniquenessConstraints(element);
    entity.indexes = indexes(element);
    return entity;
}

void ModelDocumentReader::attribute(EntityDefinition& into, pugi::xml_node const& element) {
    auto attribute = plainAttribute(element);
    if (text(element, "attributeType") == "Composite")
        composite(into, attribute, element.attribute("composite").value(), 0);
    else
        into.attributes.push_back(std::move(attribute));
}

void ModelDocumentReader::composite(EntityDefinition& into, AttributeDefinition const& outer, std::string_view name,
                                    std::size_t depth) {
    auto const found = model_.find_child(
        [&](auto child) { return std::string_view{child.name()} == "composite" && child.attribute("name").value() == name; });
    if (!found) return fail("the composite " + std::string{name} + " of " + into.name + "." + outer.name + " is missing");
    if (depth > deepestComposite) return fail("the composite " + std::string{name} + " holds itself");
    for (auto const child : found.children("attribute")) {
        if (++composed_ > mostComposed) return fail("the composites are too large");
        auto part = plainAttribute(child);
        auto const& former = part.options.renamingIdentifier.empty() ? part.name : part.options.renamingIdentifier;
        auto const& outerFormer = outer.options.renamingIdentifier.empty() ? outer.name : outer.options.renamingIdentifier;
        part.options.renamingIdentifier = outerFormer + "_" + former;
        part.name = outer.name + "_" + part.name;
        part.options.optional |= outer.options.optional;
        part.options.transient |= outer.options.transient;
        if (text(child, "attributeType") == "Composite")
            composite(into, part, child.attribute("composite").value(), depth + 1);
        else
            into.attributes.push_back(std::move(part));
    }
}

AttributeDefinition ModelDocumentReader::plainAttribute(pugi::xml_node const& element) {
    AttributeDefinition attribute{.name = requiredName(element)};
    auto const type = text(element, "attributeType");
    auto const* const known = std::ranges::find(typeNames, std::string_view{type}, &TypeName::text);
    if (known != std::end(typeNames))
        attribute.type = known->type;
    else if (type != "Composite")
        fail("the attribute " + attribute.name + " is of the unknown type " + type);
    auto& options = attribute.options;
    options.optional = yes(element, "optional");
    options.transient = yes(element, "transient");
    options.defaultValue = defaultValue(element, attribute.type);
    options.minimum = bound(element, "minValueString");
    options.maximum = bound(element, "maxValueString");
    options.regularExpression = text(element, "regularExpressionString");
    options.indexed = yes(element, "indexed");
    options.allowsExternalBinaryDataStorage = yes(element, "allowsExternalBinaryDataStorage");
    options.derived = yes(element, "derived");
    options.derivationExpression = text(element, "derivationExpression");
    if (attribute.type == NSAttributeType::Transformable) options.valueTransformerName = text(element, "valueTransformerName");
    options.renamingIdentifier = text(element, "elementID");
    options.versionHashModifier = text(element, "versionHashModifier");
    options.userInfo = userInfo(element);
    return attribute;
}

RelationshipDefinition ModelDocumentReader::relationship(pugi::xml_node const& element) {
    RelationshipDefinition relationship{.name = requiredName(element)};
    relationship.destination = text(element, "destinationEntity");
    relationship.toMany = yes(element, "toMany");
    auto& options = relationship.options;
    options.inverse = text(element, "inverseName");
    options.inverseEntity = text(element, "inverseEntity");
    options.deleteRule = deleteRule(element.attribute("deletionRule").value());
    options.optional = yes(element, "optional");
    options.ordered = yes(element, "ordered");
    options.minCount = count(element, "minCount");
    options.maxCount = count(element, "maxCount");
    options.transient = yes(element, "transient");
    options.renamingIdentifier = text(element, "elementID");
    options.versionHashModifier = text(element, "versionHashModifier");
    options.userInfo = userInfo(element);
    return relationship;
}

std::string ModelDocumentReader::requiredName(pugi::xml_node const& element) {
    auto name = text(element, "name");
    if (name.empty()) fail(std::string{"an element "} + element.name() + " has no name");
    return name;
}

} // namespace Tessarin
