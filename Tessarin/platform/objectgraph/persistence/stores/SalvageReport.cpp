#include "Tessarin/platform/objectgraph/persistence/stores/SalvageReport.h"

#include <fmt/format.h>

namespace Tessarin {

bool SalvageReport::isComplete() const noexcept { return sentences().empty(); }

std::vector<std::string> SalvageReport::sentences() const {
    std::vector<std::string> said;
    for (auto const& [name, saved, missing, mayMissMore, cutLinks, clearedRecords] : entities) {
        if (missing != 0 || mayMissMore)
            said.push_back(fmt::format("{}: {} records were saved, {}{} are missing.", name, saved,
                                       mayMissMore ? "at least " : "", missing));
        if (cutLinks != 0) said.push_back(fmt::format("{}: {} links to missing records were cut.", name, cutLinks));
        if (clearedRecords != 0)
            said.push_back(fmt::format("{}: {} records lost values that must be unique.", name, clearedRecords));
    }
    if (lostPlaces != 0) said.push_back(fmt::format("{} members of ordered relationships lost their place.", lostPlaces));
    if (unplacedPages != 0) said.push_back(fmt::format("{} pages could not be told to be of one entity.", unplacedPages));
    return said;
}

} // namespace Tessarin
