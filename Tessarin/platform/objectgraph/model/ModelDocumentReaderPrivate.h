#pragma once
#include "Tessarin/platform/objectgraph/model/ModelDefinition.h"

namespace pugi {
class xml_node;
}// namespace pugi

namespace Tessarin {

/// Turns the elements of one model document into the plain description of a model. Used once, by `parseModelDocument`.
class ModelDocumentReader {
public:
    explicit ModelDocumentReader(pugi::xml_node const& model) : model_(model) {}
    std::optional<ModelDefinition> read();
    std::string const& problem() const noexcept { return problem_; }

private:
    EntityDefinition entity(pugi::xml_node const& element);
    void attribute(EntityDefinition& into, pugi::xml_node const& element);
    void composite(EntityDefinition& into, AttributeDefinition const& outer, std::string_view name, std::size_t depth);
    AttributeDefinition plainAttribute(pugi::xml_node const& element);
    RelationshipDefinition relationship(pugi::xml_node const& element);
    std::string requiredName(pugi::xml_node const& element);
    void fail(std::string problem) {
        if (problem_.empty()) problem_ = std::move(problem);
    }

    pugi::xml_node const& model_;
    std::size_t composed_ = 0; // attributes that came out of composites
    std::string problem_;      // the first one; empty while all is well
};

} // namespace Tessarin
