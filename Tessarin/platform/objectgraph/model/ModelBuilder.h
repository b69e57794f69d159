#pragma once
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"

namespace Tessarin {

/// Builds a model in code. What is said after `entity` belongs to that entity.
///
///     auto model = ModelBuilder()
///         .entity("Author")
///             .attribute("name", NSAttributeType::String, {.optional = false})
///             .toMany("books", "Book", {.inverse = "author", .deleteRule = NSDeleteRule::Cascade})
///         .entity("Book", {.className = "Library.Book"})
///             .attribute("title", NSAttributeType::String)
///             .toOne("author", "Author", {.inverse = "books"})
///             .unique({"title"})
///         .build();
class TESSARIN_API ModelBuilder {
public:
    explicit ModelBuilder(std::string versionIdentifier = {});

    ModelBuilder& entity(std::string name, EntityOptions options = {});
    ModelBuilder& attribute(std::string name, NSAttributeType type, AttributeOptions options = {});
    ModelBuilder& toOne(std::string name, std::string destination, RelationshipOptions options = {});
    ModelBuilder& toMany(std::string name, std::string destination, RelationshipOptions options = {});
    ModelBuilder& unique(std::vector<std::string> properties);
    ModelBuilder& index(std::string name, std::vector<IndexDefinition::Element> elements);
    ModelBuilder& configuration(std::string name, std::vector<std::string> entities);
    ModelBuilder& fetchRequestTemplate(FetchRequestTemplate request);

    /// The model. Fatal when the description contradicts itself; the message says where.
    Ref<NSManagedObjectModel> build() const;
    ModelDefinition const& definition() const noexcept { return definition_; }

private:
    EntityDefinition& current(char const* what);
    ModelDefinition definition_;
};

} // namespace Tessarin
