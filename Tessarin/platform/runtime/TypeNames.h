#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>

// What types and enumerators are called: the compiler spells a function's template arguments out.
namespace Tessarin::describing {

/// "App::Mode::Dark" of "… [with auto value = App::Mode::Dark]", or of "… [value = …]", which the other compiler writes.
consteval std::string_view argumentOf(std::string_view text, std::string_view parameter) {
    auto const start = text.find(parameter) + parameter.size();
    auto const end = text.find("; ", start); // what is left is the last "]"
    return text.substr(start, (end == text.npos ? text.size() - 1 : end) - start);
}

/// "Mode" of "App::Mode", "Box<App::Mode>" of "App::Box<App::Mode>".
consteval std::string_view lastPart(std::string_view name) {
    int depth = 0;
    for (auto at = name.size(); at > 0; --at) {
        depth += name[at - 1] == '>' ? 1 : name[at - 1] == '<' ? -1 : 0;
        if (name[at - 1] == ':' && depth == 0) return name.substr(at);
    }
    return name;
}

template <class Described> consteval std::string_view spelledType() { return argumentOf(__PRETTY_FUNCTION__, "Described = "); }
template <auto described> consteval std::string_view spelledValue() { return argumentOf(__PRETTY_FUNCTION__, "described = "); }

/// The name of a type without those of its namespaces.
template <class T> inline constexpr std::string_view typeName = lastPart(spelledType<T>());

/// Enumerators between these are found by name.
inline constexpr std::int64_t firstNamed = -16, lastNamed = 128;

/// Empty where no enumerator has that number. An enumeration without a type of its own may not even have such a value.
template <class E, std::int64_t number> consteval std::string_view enumeratorName() {
    using Number = std::underlying_type_t<E>;
    if constexpr (std::is_unsigned_v<Number> && number < 0) {
        return {};
    } else if constexpr (requires { typename std::integral_constant<E, static_cast<E>(number)>; }) {
        constexpr auto name = lastPart(spelledValue<static_cast<E>(number)>());
        return name.find(')') == name.npos ? name : std::string_view{}; // "(App::Mode)7" has none
    } else {
        return {};
    }
}

template <class E, std::size_t... at> consteval auto enumeratorNames(std::index_sequence<at...>) {
    return std::array{enumeratorName<E, firstNamed + static_cast<std::int64_t>(at)>()...};
}

/// The name of the enumerator of that value, without its enumeration's; empty when there is none, or it is too far from zero.
template <class E>
    requires std::is_enum_v<E>
std::string_view nameOfEnumerator(E value) {
    static constexpr auto names = enumeratorNames<E>(std::make_index_sequence<lastNamed - firstNamed + 1>());
    auto const number = static_cast<std::underlying_type_t<E>>(value);
    if constexpr (std::is_signed_v<std::underlying_type_t<E>>)
        if (number < firstNamed) return {};
    if (number > 0 && static_cast<std::uint64_t>(number) > static_cast<std::uint64_t>(lastNamed)) return {};
    return names[static_cast<std::size_t>(static_cast<std::int64_t>(number) - firstNamed)];
}

} // namespace Tessarin::describing
