#include "Tessarin/platform/objectgraph/persistence/rows/RowLayout.h"

#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"

namespace Tessarin {
namespace {

constexpr std::uint8_t textWidth = 4;

std::uint8_t widthOf(RowLayout::Cell const& cell, bool isWide) {
    if (isHeapCell(cell.type)) return textWidth;
    if (isWide || cell.type != CellType::Integer) return 8;
    switch (cell.property->asAttribute()->attributeType()) {
    case NSAttributeType::Boolean: return 1;
    case NSAttributeType::Integer16: return 2;
    case NSAttributeType::Integer32: return 4;
    default: return 8;
    }
}

/// The widest first, so that each stands at a multiple of its width.
RowLayout::Packing packed(std::vector<RowLayout::Cell> const& cells, bool isWide) {
    RowLayout::Packing packing;
    packing.places.resize(cells.size());
    std::uint32_t offset = sizeof(Row);
    for (std::uint8_t const width : {8, 4, 2, 1})
        for (std::size_t cell = 0; cell < cells.size(); ++cell) {
            if (widthOf(cells[cell], isWide) != width) continue;
            packing.places[cell] = {.offset = offset, .textBefore = 0, .width = width, .type = cells[cell].type};
            offset += width;
        }
    std::uint32_t textBefore = 0;
    for (std::size_t cell = 0; cell < cells.size(); ++cell)
        if (isHeapCell(cells[cell].type))
            packing.places[cell].textBefore = std::exchange(textBefore, packing.places[cell].offset);
    packing.presence = offset;
    packing.heap = offset + static_cast<std::uint32_t>((cells.size() + 7) / 8);
    return packing;
}

} // namespace

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
        bool const isStored =
            !property->isTransient() && (attribute ? !attribute->isDerived() && cellTypeOf(attribute->attributeType(), type)
                                                   : !property->asRelationship()->isToMany());
        cellOfProperty_.push_back(isStored ? static_cast<int>(cells_.size()) : noCell);
        if (isStored) cells_.push_back({property, type});
    }
    narrow_ = packed(cells_, false);
    wide_ = packed(cells_, true);
    for (auto* packing : {&narrow_, &wide_})
        for (auto const cell : cellOfProperty_)
            packing->byProperty.push_back(cell == noCell ? Packing::Place{} : packing->places[static_cast<std::size_t>(cell)]);
}

std::span<RowLayout::Cell const> RowLayout::cells() const noexcept { return cells_; }

} // namespace Tessarin
