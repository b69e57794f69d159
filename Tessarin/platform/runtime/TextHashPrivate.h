#pragma once
#include <functional>
#include <string_view>

namespace Tessarin {

/// With `std::equal_to<>`, has unordered containers of texts looked up by any kind of text without making one of theirs.
struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>{}(text); }
};

} // namespace Tessarin
