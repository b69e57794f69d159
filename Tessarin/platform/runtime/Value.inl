#pragma once
// Reading a Value as a C++ type; included by Dictionary.h, when every kind of content is complete.

namespace Tessarin {

template <class T> struct RefElement;
template <class T> struct RefElement<Ref<T>> { using type = T; };

template <class T> std::optional<T> Value::as() const {
    if constexpr (std::is_same_v<T, Value>) {
        return *this;
    } else if constexpr (std::is_same_v<T, bool>) {
        return kind() == Kind::Boolean ? std::optional(boolean()) : std::nullopt;
    } else if constexpr (std::is_integral_v<T>) {
        if (kind() != Kind::Integer && kind() != Kind::Boolean) return std::nullopt;
        auto const narrow = static_cast<T>(integer());
        return sizeof(T) == sizeof(std::int64_t) || narrow == integer() ? std::optional(narrow) : std::nullopt;
    } else if constexpr (std::is_floating_point_v<T>) {
        return isNumber() ? std::optional(static_cast<T>(number())) : std::nullopt;
    } else if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, Tessarin::Text> ||
                         std::is_same_v<T, std::string_view>) {
        return isText() ? std::optional(T(text())) : std::nullopt;
    } else if constexpr (std::is_same_v<T, Tessarin::Decimal>) {
        return kind() == Kind::Decimal ? std::optional(decimal()) : std::nullopt;
    } else if constexpr (std::is_same_v<T, Tessarin::List>) {
        return kind() == Kind::List ? std::optional(list()) : std::nullopt;
    } else if constexpr (std::is_same_v<T, Tessarin::Dictionary>) {
        return kind() == Kind::Dictionary ? std::optional(dictionary()) : std::nullopt;
    } else if constexpr (ValueConvertible<T>) {
        return ValueTraits<T>::from(*this);
    } else {
        auto object = objectAs<typename RefElement<T>::type>();
        return object ? std::optional(std::move(object)) : std::nullopt;
    }
}

} // namespace Tessarin
