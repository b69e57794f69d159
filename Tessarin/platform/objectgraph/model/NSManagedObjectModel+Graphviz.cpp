// A model as a picture, in Graphviz's language.
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"

namespace Tessarin {
namespace {

/// Inside a label of HTML; it may hold any character but these.
std::string escaped(std::string_view name) {
    std::string text;
    for (char const c : name) switch (c) {
        case '&': text += "&amp;"; break;
        case '<': text += "&lt;"; break;
        case '>': text += "&gt;"; break;
        case '"': text += "&quot;"; break;
        default: text += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
        }
    return text;
}

/// As an identifier, in quotation marks. A backslash stands for itself there, but before a quotation mark and at the end.
std::string quoted(std::string_view name) {
    std::string text = "\"";
    for (char const c : name) {
        if (c == '"' || c == '\\') text += '\\';
        text += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
    }
    return text + "\"";
}

std::string_view nameOf(NSAttributeType type) {
    switch (type) {
    case NSAttributeType::Integer16: return "Integer 16";
    case NSAttributeType::Integer32: return "Integer 32";
    case NSAttributeType::Integer64: return "Integer 64";
    case NSAttributeType::Decimal: return "Decimal";
    case NSAttributeType::Double: return "Double";
    case NSAttributeType::Float: return "Float";
    case NSAttributeType::String: return "String";
    case NSAttributeType::Boolean: return "Boolean";
    case NSAttributeType::Date: return "Date";
    case NSAttributeType::BinaryData: return "Data";
    case NSAttributeType::UUID: return "UUID";
    case NSAttributeType::URI: return "URI";
    default: return "?";
    }
}

std::string nodeOf(NSEntityDescription const& entity, std::string_view note) {
    auto const name = escaped(entity.name());
    auto text = "  " + quoted(entity.name()) + R"( [label=<<table border="0" cellborder="1" cellspacing="0"><tr><td>)" +
                (entity.isAbstract() ? "<i>" + name + "</i>" : "<b>" + name + "</b>");
    if (!note.empty()) text += "<br/>" + escaped(note);
    text += "</td></tr>";
    for (auto const* attribute : entity.attributes())
        if (attribute->entity() == &entity) // the others stand with its ancestors
            text += "<tr><td align=\"left\">" + escaped(attribute->name()) + ": " +
                    std::string(nameOf(attribute->attributeType())) + (attribute->isOptional() ? "?" : "") + "</td></tr>";
    return text + "</table>>];\n";
}

/// One line for both ends, drawn by the one that comes first.
std::string edgeOf(NSRelationshipDescription const& relationship) {
    auto const* const inverse = relationship.isReciprocal() ? relationship.inverseRelationship() : nullptr;
    auto const place = [](NSRelationshipDescription const& end) { return std::pair(end.entity()->index(), end.index()); };
    if (inverse && place(*inverse) < place(relationship)) return {};
    auto const head = [](NSRelationshipDescription const& end) { return end.isToMany() ? "crow" : "normal"; };
    auto text = "  " + quoted(relationship.entity()->name()) + " -> " + quoted(relationship.destinationEntity()->name()) +
                " [label=" + quoted(relationship.name() + (inverse ? " / " + inverse->name() : "")) +
                ", arrowhead=" + head(relationship);
    if (inverse) text += std::string(", dir=both, arrowtail=") + head(*inverse);
    return text + "];\n";
}

} // namespace

std::string NSManagedObjectModel::graphvizText(std::map<std::string, std::string, std::less<>> const& notes) const {
    std::string nodes = "digraph model {\n  node [shape=plain];\n";
    std::string edges;
    for (auto const& entity : entities_) {
        auto const note = notes.find(entity->name());
        nodes += nodeOf(*entity, note == notes.end() ? std::string_view() : note->second);
        if (auto const* parent = entity->superentity())
            edges += "  " + quoted(entity->name()) + " -> " + quoted(parent->name()) + " [arrowhead=empty, style=dashed];\n";
        for (auto const* relationship : entity->relationships())
            if (relationship->entity() == entity.get()) edges += edgeOf(*relationship);
    }
    return nodes + edges + "}\n";
}

} // namespace Tessarin
