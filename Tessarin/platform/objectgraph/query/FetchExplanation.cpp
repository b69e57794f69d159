#include "Tessarin/platform/objectgraph/query/FetchExplanation.h"

namespace Tessarin {

std::string FetchExplanation::description() const {
    std::string text;
    if (!sql.empty()) text = "SQL (" + std::to_string(boundCount) + " bound): " + sql + "\n";
    auto const add = [&text](char const* title, std::vector<std::string> const& lines) {
        if (lines.empty()) return;
        text += title;
        for (auto const& line : lines) text += "  " + line + "\n";
    };
    add("Plan:\n", plan);
    add("Indexes:\n", indexes);
    add("In memory:\n", inMemory);
    return text;
}

} // namespace Tessarin
