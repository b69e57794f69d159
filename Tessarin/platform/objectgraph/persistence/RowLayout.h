#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/model/NSAttributeDescription.h"
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include "Tessarin/platform/objectgraph/model/NSRelationshipDescription.h"
#include <cstdint>
#include <span>
#include <vector>

namespace Tessarin {

class RowSpace;

/// How a cell of a row is kept, in memory and in the store alike.
enum class CellType : std::uint8_t {
    Integer,   // integers of every width, Boolean
    Real,      // double, float, date (seconds since 2001-01-01 UTC)
    Text,      // text, URL, decimal
    Bytes,     // data, UUID
    Reference, // to-one relationship: the key of the record at the other end
};

/// Which stored property of an entity has which cell of its rows. Transient properties, to-many relationships and
/// attributes whose kind cannot be stored have none.
class TESSARIN_API RowLayout {
public:
    struct Cell {
        NSPropertyDescription const* property;
        CellType type;
    };
    static constexpr int noCell = -1;

    RowLayout(RowSpace& space, NSEntityDescription const& entity);

    RowSpace& space() const noexcept { return space_; }
    NSEntityDescription const& entity() const noexcept { return entity_; }
    std::span<Cell const> cells() const noexcept { return cells_; }
    /// The cell of the property at that index of the entity, or `noCell`.
    int cellOf(std::size_t propertyIndex) const noexcept { return cellOfProperty_[propertyIndex]; }

private:
    RowSpace& space_;
    NSEntityDescription const& entity_;
    std::vector<Cell> cells_;
    std::vector<int> cellOfProperty_;
};

/// How values of an attribute type are kept; false when they cannot be (undefined, transformable, composite, object identifier).
TESSARIN_API bool cellTypeOf(NSAttributeType type, CellType& result);

} // namespace Tessarin
