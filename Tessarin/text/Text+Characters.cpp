#include "Tessarin/platform/foundation/text/ClustersPrivate.h"
#include "Tessarin/platform/runtime/Text.h"
#include "Tessarin/text/CharacterRangePrivate.h"

namespace Tessarin {

std::size_t TextCharacters::length(std::string_view text) noexcept { return clusters::count(text); }

std::optional<std::string> TextCharacters::at(std::string_view text, std::ptrdiff_t index) {
    if (index < 0) index += static_cast<std::ptrdiff_t>(length(text));
    if (index < 0) return {};
    auto const from = clusters::offsetOf(text, static_cast<std::size_t>(index));
    if (from == text.size()) return {};
    return std::string{text.substr(from, clusters::endOf(text, from) - from)};
}

std::string TextCharacters::sub(std::string_view text, std::ptrdiff_t from, std::ptrdiff_t to) {
    // Only what counts from the end needs the count.
    auto const range = CharacterRange::within(from < 0 || to < 0 ? length(text) : PTRDIFF_MAX, from, to);
    auto const rest = text.substr(clusters::offsetOf(text, range.from));
    return std::string{rest.substr(0, clusters::offsetOf(rest, range.to - range.from))};
}

} // namespace Tessarin
