#pragma once
#include <charconv>
#include <optional>
#include <string_view>

namespace Tessarin {

/// The number that a text is from end to end, with or without a sign; absent for any other, and for what the type cannot hold.
template <class Number> std::optional<Number> readNumber(std::string_view text) noexcept {
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
    Number number{};
    auto const* const end = text.data() + text.size();
    auto const [stop, problem] = std::from_chars(text.data(), end, number);
    return problem == std::errc{} && stop == end && !text.empty() ? std::optional(number) : std::nullopt;
}

} // namespace Tessarin
