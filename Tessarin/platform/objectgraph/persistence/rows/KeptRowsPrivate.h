#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"
#include <map>
#include <vector>

namespace Tessarin {

/// Many rows, kept by their blocks: a few bytes for every few dozen.
class TESSARIN_API KeptRows {
public:
    /// `fillBlocks`: the rows are, from the first to the last, all rows of their blocks.
    void add(std::span<RowRef const> rows, bool fillBlocks);

    using Changes = std::map<RecordKey, RowRef>;
    /// Rows that stand in the order of their keys: a changed one takes the place of the former, a new one its own; none: gone.
    void apply(Changes const& changes);

    void appendTo(std::vector<RowRef>& rows) const;
    std::size_t count() const noexcept { return count_; }
    /// Of memory that the rows take.
    std::size_t bytes() const noexcept { return bytes_; }

private:
    struct Piece {
        RowRef first;
        std::uint32_t count; // of neighbours in the block
    };
    class Patch;

    std::vector<Piece> pieces_;
    std::size_t count_ = 0;
    std::size_t bytes_ = 0;
};

} // namespace Tessarin
