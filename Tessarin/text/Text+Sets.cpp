#include "Tessarin/platform/foundation/text/NSCharacterSet.h"
#include "Tessarin/platform/runtime/Text.h"

namespace Tessarin {

std::string TextSets::removingCharacters(std::string_view text, NSCharacterSet const& in) {
    std::string kept;
    while (!text.empty()) {
        auto const size = in.lengthOfOthers(text);
        kept.append(text.substr(0, size));
        text.remove_prefix(size);
        text.remove_prefix(in.lengthOfMembers(text));
    }
    return kept;
}

std::string TextSets::trimming(std::string_view text) {
    return trimming(text, NSCharacterSet::whitespaceAndNewlineCharacterSet());
}

std::string TextSets::trimming(std::string_view text, NSCharacterSet const& in) { return std::string{in.trimmed(text)}; }

std::vector<std::string> TextSets::split(std::string_view text, NSCharacterSet const& in) {
    std::vector<std::string> pieces;
    for (;;) {
        auto const size = in.lengthOfOthers(text);
        pieces.emplace_back(text.substr(0, size));
        text.remove_prefix(size);
        if (text.empty()) return pieces;
        bool const isOneOfTwo = text.starts_with("\r\n") && in.characterIsMember(U'\n');
        text.remove_prefix(isOneOfTwo ? 2 : in.lengthOfFirst(text));
    }
}

} // namespace Tessarin
