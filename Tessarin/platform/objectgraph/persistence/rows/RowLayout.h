#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/model/ModelDefinition.h"
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace Tessarin {

class NSEntityDescription;
class NSPropertyDescription;
class RowSpace;

/// How a cell of a row is kept, in memory and in the store alike.
enum class CellType : std::uint8_t {
    Integer,   // integers of every width, Boolean
    Real,      // double, float, date (seconds since 2001-01-01 UTC)
    Text,      // text, URL, decimal
    Bytes,     // data, UUID
    Reference, // to-one relationship: the key of the record at the other end
};

/// Whether a cell's content stands behind the fixed cells of its row.
constexpr bool isHeapCell(CellType type) noexcept { return type == CellType::Text || type == CellType::Bytes; }

/// Which stored property of an entity has which cell of its rows. Transient properties, to-many relationships and
/// attributes whose kind cannot be stored have none.
class TESSARIN_API RowLayout {
public:
    struct Cell {
        NSPropertyDescription const* property;
        CellType type;
    };
    static constexpr int noCell = -1;

    /// Where a row keeps its cells, in bytes from the row's start: numbers in the width of their attribute type, for a text
    /// where it ends. The texts follow one another from `heap` on, each beginning where the one before it ends.
    struct Packing {
        struct Place {
            std::uint32_t offset = 0;
            std::uint32_t textBefore = 0; // the offset of the end of the text before it; 0: it is the first
            std::uint8_t width = 0;    // 0: there is no such cell
            CellType type = CellType::Integer;

            bool holds(std::int64_t value) const noexcept {
                switch (width) {
                case 1: return value == static_cast<std::int8_t>(value);
                case 2: return value == static_cast<std::int16_t>(value);
                case 4: return value == static_cast<std::int32_t>(value);
                default: return true;
                }
            }
            /// Writes it there; false when it does not fit.
            bool hold(char* row, std::int64_t value) const noexcept {
                switch (width) {
                case 1: return put<std::int8_t>(row, value);
                case 2: return put<std::int16_t>(row, value);
                case 4: return put<std::int32_t>(row, value);
                default: return put<std::int64_t>(row, value);
                }
            }

        private:
            template <class T> bool put(char* row, std::int64_t value) const noexcept {
                auto const narrow = static_cast<T>(value);
                std::memcpy(row + offset, &narrow, sizeof narrow);
                return narrow == value;
            }
        };
        void setPresent(char* row, std::size_t cell) const noexcept {
            auto& byte = row[presence + cell / 8];
            byte = static_cast<char>(byte | 1 << (cell % 8));
        }
        std::vector<Place> places;     // by cell
        std::vector<Place> byProperty; // by the property's index
        std::uint32_t presence = 0; // a bit per cell
        std::uint32_t heap = 0;
    };

    RowLayout(RowSpace& space, NSEntityDescription const& entity);

    RowSpace& space() const noexcept { return space_; }
    NSEntityDescription const& entity() const noexcept { return entity_; }
    std::span<Cell const> cells() const noexcept;
    /// The cell of the property at that index of the entity, or `noCell`.
    int cellOf(std::size_t propertyIndex) const noexcept { return cellOfProperty_[propertyIndex]; }
    /// `isWide`: every number has 8 bytes, for rows with a number that its attribute type would cut.
    Packing const& packing(bool isWide) const noexcept { return isWide ? wide_ : narrow_; }

private:
    RowSpace& space_;
    NSEntityDescription const& entity_;
    std::vector<Cell> cells_;
    std::vector<int> cellOfProperty_;
    Packing narrow_, wide_;
};

/// How values of an attribute type are kept; false when they cannot be (undefined, transformable, composite, object identifier).
TESSARIN_API bool cellTypeOf(NSAttributeType type, CellType& result);

} // namespace Tessarin
