#pragma once
#include <string_view>

namespace Tessarin {

/// A text whose address is a key: two of them with equal characters are two keys. Define it in a .cpp file, never inline in
/// a header. The single-character form is no valid key; using it as one is fatal.
///
///     static StaticText const iconKey("icon");
///     object->associateObject(icon, iconKey);
class StaticText {
public:
    constexpr explicit StaticText(char const* text) noexcept : text_(text) {}
    constexpr explicit StaticText(char character) noexcept : single_(character) {}
    StaticText(StaticText const&) = delete;
    StaticText& operator=(StaticText const&) = delete;

    constexpr bool isSingleCharacter() const noexcept { return text_ == nullptr; }
    constexpr std::string_view text() const noexcept { return text_ ? std::string_view{text_} : std::string_view{&single_, 1}; }

private:
    char const* text_ = nullptr;
    char single_ = 0;
};

} // namespace Tessarin
