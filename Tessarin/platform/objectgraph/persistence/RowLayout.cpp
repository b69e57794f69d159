#include "Tessarin/platform/objectgraph/persistence/RowLayout.h"

namespace Tessarin {

bool cellTypeOf(NSAttributeType type, CellType& result) {
    switch (type) {
    case NSAttributeType::Integer16:
    case NSAttributeType::Integer32:
    case NSAttributeType::Integer64:
    case NSAttributeType::Boolean: result = CellType::Integer; return true;
    case NSAttributeType::Double:
    case NSAttributeType::Float:
    case NSAttributeType::Date: result = CellType::Real; return true;
    case NSAttributeType::String:
    case NSAttributeType::URI:
    case NSAttributeType::Decimal: result = CellType::Text; return true;
    case NSAttributeType::BinaryData:
    case NSAttributeType::UUID: result = CellType::Bytes; return true;
    default: return false;
    }
}

RowLayout::RowLayout(RowSpace& space, NSEntityDescription const& entity) : space_(space), entity_(entity) {
    for (auto const* property : entity.properties()) {
        CellType type = CellType::Reference;
        auto const* attribute = property->asAttribute();
        bool const isStored = !property->isTransient() && (attribute ? !attribute->isDerived() && cellTypeOf(attribute->attributeType(), type)
                                                                     : !property->asRelationship()->isToMany());
        cellOfProperty_.push_back(isStored ? static_cast<int>(cells_.size()) : noCell);
        if (isStored) cells_.push_back({property, type});
    }
}

} // namespace Tessarin
