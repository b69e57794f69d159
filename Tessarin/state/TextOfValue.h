#pragma once
#include "Tessarin/platform/runtime/NSObject.h"
#include "Tessarin/platform/runtime/NumberText.h"
#include "Tessarin/platform/runtime/Value.h"
#include <concepts>
#include <sstream>
#include <string>

namespace Tessarin {

/// The text of any value: its own description, "3.0" for a real number, that of a Value, what it writes to a stream, or else the
/// name of its type.
template <class T> std::string textOfValue(T const& value) {
    if constexpr (requires {
                      { value.description() } -> std::convertible_to<std::string>;
                  }) {
        return value.description();
    } else if constexpr (std::same_as<T, double> || std::same_as<T, float>) {
        return shortestText(value);
    } else if constexpr (std::constructible_from<Value, T const&>) {
        return Value(value).description();
    } else if constexpr (requires(std::ostream& out) { out << value; }) {
        std::ostringstream text;
        text << value;
        return text.str();
    } else {
        return typeid(T).name();
    }
}

} // namespace Tessarin
