#include "Tessarin/platform/objectgraph/model/EntityHashPrivate.h"

#include "Tessarin/platform/objectgraph/model/NSAttributeDescription.h"
#include "Tessarin/platform/objectgraph/model/NSRelationshipDescription.h"
#include "Tessarin/platform/objectgraph/model/StableHashPrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

using Digits = StableHash::Digits;

Digits attributeHash(AttributeDefinition const& attribute) {
    auto const& options = attribute.options;
    StableHash hash;
    hash.add("attribute")
        .add(attribute.name)
        .add(static_cast<std::uint64_t>(attribute.type))
        .add(std::uint64_t{options.optional})
        .add(std::uint64_t{options.allowsExternalBinaryDataStorage})
        .add(std::uint64_t{options.indexed})
        .add(options.derived ? options.derivationExpression : std::string{})
        .add(options.versionHashModifier);
    if (options.fullText) hash.add("fullText"); // the others keep the hash that they had before there was such a thing
    return hash.digits();
}

Digits relationshipHash(RelationshipDefinition const& relationship) {
    auto const& options = relationship.options;
    return StableHash{}
        .add("relationship")
        .add(relationship.name)
        .add(relationship.destination)
        .add(std::uint64_t{relationship.toMany})
        .add(std::uint64_t{options.ordered})
        .add(std::uint64_t{options.optional})
        .add(options.inverse)
        .add(options.versionHashModifier)
        .digits();
}

Digits constraintHash(std::vector<std::string> names) {
    std::ranges::sort(names);
    StableHash hash;
    hash.add("unique");
    for (auto const& name : names) hash.add(name);
    return hash.digits();
}

Digits indexHash(IndexDefinition const& index) {
    StableHash hash;
    hash.add("index"); // its name is of no consequence
    for (auto const& element : index.elements) hash.add(element.property).add(std::uint64_t{element.ascending});
    return hash.digits();
}

} // namespace

std::string entityVersionHash(EntityDefinition const& entity, std::span<Ref<NSPropertyDescription> const> properties) {
    std::vector<Digits> lines;
    for (auto const& property : properties) {
        if (auto const* attribute = property->asAttribute()) {
            if (!attribute->definition().options.transient) lines.push_back(attributeHash(attribute->definition()));
        } else if (auto const& relationship = property->asRelationship()->definition(); !relationship.options.transient) {
            lines.push_back(relationshipHash(relationship));
        }
    }
    for (auto const& constraint : entity.uniquenessConstraints) lines.push_back(constraintHash(constraint));
    for (auto const& index : entity.indexes) lines.push_back(indexHash(index));
    std::ranges::sort(lines);

    StableHash hash;
    hash.add("entity").add(entity.name).add(entity.options.parent).add(std::uint64_t{entity.options.isAbstract});
    hash.add(entity.options.versionHashModifier);
    for (auto const& line : lines) hash.add({line.data(), line.size()});
    return hash.hex();
}

} // namespace Tessarin
