#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/persistence/Row.h"
#include <vector>

namespace Tessarin {

/// Many rows, kept by their blocks: eight bytes for every few dozen.
class TESSARIN_API KeptRows {
public:
    /// The rows are, from the first to the last, all rows of their blocks.
    explicit KeptRows(std::span<RowRef const> rows);

    void appendTo(std::vector<RowRef>& rows) const;
    /// Of memory that the rows take.
    std::size_t bytes() const noexcept { return bytes_; }

private:
    std::vector<RowRef> firsts_; // the first row of each block
    std::size_t count_;
    std::size_t bytes_ = 0;
};

} // namespace Tessarin
