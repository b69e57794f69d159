#include "Tessarin/platform/objectgraph/persistence/rows/KeptRowsPrivate.h"

namespace Tessarin {

void KeptRows::add(std::span<RowRef const> rows, bool fillBlocks) {
    for (std::size_t at = 0; at < rows.size(); at += pieces_.back().count) {
        auto const& block = rows[at].block();
        pieces_.push_back({rows[at], fillBlocks ? block.rowCount : std::uint32_t{1}});
        bytes_ += fillBlocks ? block.capacity : block.capacity / block.rowCount;
    }
    count_ += rows.size();
}

void KeptRows::appendTo(std::vector<RowRef>& rows) const {
    rows.reserve(rows.size() + count_);
    for (auto const& [first, count] : pieces_) {
        auto& block = first.block();
        block.retain(count);
        auto* row = const_cast<Row*>(first.get());
        for (auto left = count; left > 0; --left, row = block.after(*row)) rows.push_back(RowRef::adopt(row));
    }
}

} // namespace Tessarin
