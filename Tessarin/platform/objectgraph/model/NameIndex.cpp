#include "Tessarin/platform/objectgraph/model/NameIndex.h"

namespace Tessarin {

bool NameIndex::append(std::string_view name) {
    if (find(name) != none) return false;
    names_.push_back(name);
    if (names_.size() * 2 > cells_.size()) {
        cells_.assign(std::bit_ceil(names_.size() * 4), {});
        for (std::uint32_t at = 0; at < names_.size(); ++at) place(at);
    } else {
        place(static_cast<std::uint32_t>(names_.size() - 1));
    }
    return true;
}

void NameIndex::place(std::uint32_t position) {
    Words const words(names_[position]);
    auto at = words.hash() & mask();
    while (cells_[at].position != none) at = (at + 1) & mask();
    cells_[at] = {words, position};
}

} // namespace Tessarin
