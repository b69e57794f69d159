#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Value.h"
#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace Tessarin {

/// What can be read as text.
class TESSARIN_API StringLike {
public:
    virtual std::string string() = 0;

protected:
    StringLike() = default;
    ~StringLike() = default;
};

/// What a kept value is read as: a copy, or where there can be none the kept value itself.
template <class T>
using KeptValue = std::conditional_t<std::is_copy_constructible_v<T>, std::optional<T>, std::optional<T> const&>;

/// A text itself, and "" for what is absent or no text: nothing is converted to a description.
template <class T> std::string textOrEmpty(std::optional<T> const& value) {
    if constexpr (std::same_as<T, Value>)
        return value ? std::string{value->text()} : std::string{};
    else if constexpr (std::convertible_to<T const&, std::string_view>)
        return value ? std::string{std::string_view{*value}} : std::string{};
    else
        return {};
}

} // namespace Tessarin
