#include "Tessarin/platform/objectgraph/persistence/KeptRowsPrivate.h"

namespace Tessarin {

KeptRows::KeptRows(std::span<RowRef const> rows) : count_(rows.size()) {
    for (std::size_t at = 0; at < rows.size(); at += firsts_.back().block().count) {
        firsts_.push_back(rows[at]);
        bytes_ += rows[at].block().capacity;
    }
}

void KeptRows::appendTo(std::vector<RowRef>& rows) const {
    rows.reserve(rows.size() + count_);
    for (auto const& first : firsts_) {
        auto& block = first.block();
        auto const before = rows.size();
        for (auto* row = block.first(); row; row = block.after(*row)) rows.push_back(RowRef::adopt(row));
        block.retain(static_cast<std::uint32_t>(rows.size() - before));
    }
}

} // namespace Tessarin
