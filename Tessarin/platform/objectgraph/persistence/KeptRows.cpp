#include "Tessarin/platform/objectgraph/persistence/KeptRowsPrivate.h"

namespace Tessarin {

std::optional<KeptRows> KeptRows::of(std::span<RowRef const> rows) {
    KeptRows kept;
    kept.count_ = rows.size();
    for (std::size_t at = 0; at < rows.size();) {
        auto& block = rows[at].block();
        kept.firsts_.push_back(rows[at]);
        kept.bytes_ += block.capacity;
        for (auto* row = block.first(); row; row = block.after(*row), ++at)
            if (at == rows.size() || rows[at].get() != row) return {};
    }
    return kept;
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
