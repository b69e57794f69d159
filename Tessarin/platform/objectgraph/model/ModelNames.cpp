#include "Tessarin/platform/objectgraph/model/ModelNamesPrivate.h"

#include "Tessarin/platform/foundation/values/UTF8Private.h"
#include "Tessarin/platform/runtime/QuotedText.h"

#include <algorithm>

namespace Tessarin {
namespace {

bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

/// Of a name that stands in the file, in SQL and in identities.
std::string_view problemWithText(std::string_view name) {
    if (std::ranges::any_of(name, isControl)) return "there is a control character in its name";
    return isUTF8(name) ? std::string_view{} : "its name is not UTF-8";
}

std::string_view problemWithProperty(std::string_view name) {
    if (auto const problem = problemWithText(name); !problem.empty()) return problem;
    if (name.starts_with('@')) return "no key path reaches a name that begins with @";
    return name.find('.') == name.npos ? std::string_view{} : "no key path reaches a name with a dot";
}

} // namespace

std::string problemWithNames(ModelDefinition const& definition) {
    std::string all;
    for (auto const& entity : definition.entities) {
        auto const place = quotedText(entity.name);
        auto const tell = [&](char const* what, std::string_view name, std::string_view problem) {
            if (all.empty() && !problem.empty())
                all.append("the ").append(what).append(quotedText(name)).append(": ").append(problem);
        };
        tell("entity ", entity.name, problemWithText(entity.name));
        for (auto const& each : entity.attributes)
            tell(("attribute " + place + ".").c_str(), each.name, problemWithProperty(each.name));
        for (auto const& each : entity.relationships)
            tell(("relationship " + place + ".").c_str(), each.name, problemWithProperty(each.name));
        for (auto const& each : entity.indexes) tell(("index " + place + ".").c_str(), each.name, problemWithText(each.name));
    }
    return all;
}

} // namespace Tessarin
