#include "Tessarin/platform/objectgraph/context/EntityRulesPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/RowLayout.h"

namespace Tessarin {
namespace {

bool canFail(NSAttributeDescription const& attribute) {
    if (attribute.isTransient()) return false;
    CellType type{};
    if (attribute.isDerived() || !cellTypeOf(attribute.attributeType(), type)) return true; // a value of it cannot be stored
    bool const isNarrow =
        attribute.attributeType() == NSAttributeType::Integer16 || attribute.attributeType() == NSAttributeType::Integer32;
    return isNarrow || !attribute.isOptional() || attribute.minimum() || attribute.maximum() ||
           !attribute.regularExpression().empty();
}

} // namespace

EntityRules::EntityRules(NSEntityDescription const& entity) {
    for (auto const* attribute : entity.attributes()) {
        if (canFail(*attribute)) checkedAttributes.push_back(attribute);
        if (!attribute->defaultValue().isAbsent()) defaults.push_back(attribute);
    }
    for (auto const* relationship : entity.relationships())
        if (!relationship->isTransient() &&
            (!relationship->isOptional() || (relationship->isToMany() && relationship->maxCount() > 0)))
            checkedRelationships.push_back(relationship);
}

} // namespace Tessarin
