#pragma once
#include "Tessarin/keyaccess/AggregateBindings.h"
#include "Tessarin/keyaccess/AggregateCount.h"
#include <array>
#include <string_view>
#include <type_traits>

// What the fields of an aggregate are called: the compiler spells a function's template arguments out, and there the argument
// is a pointer to the field.
namespace Tessarin::reflection {

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wundefined-internal"
#pragma clang diagnostic ignored "-Wundefined-var-template"
#endif
/// Holds an object that is nowhere defined: only the places of its fields are spoken of.
template <class T> struct Imagined {
    T const value;
    static Imagined const object;
};

template <class... Fields> struct FieldPointers;
template <> struct FieldPointers<> {};
template <class First, class... Rest> struct FieldPointers<First, Rest...> {
    First const* first;
    FieldPointers<Rest...> rest;
};

constexpr FieldPointers<> pointersTo() { return {}; }
template <class First, class... Rest>
constexpr FieldPointers<First, Rest...> pointersTo(First const& first, Rest const&... rest) {
    return {&first, pointersTo(rest...)};
}

template <class T, std::size_t count> consteval auto fieldPointers() {
    return visitFields<count>(Imagined<T>::object.value, [](auto const&... fields) { return pointersTo(fields...); });
}

#if defined(__clang__)
#pragma clang diagnostic pop
#endif

template <auto> struct Constant {};

/// Whether each field has a place of its own in the object: bit-fields and references have none, and so no name to be read.
template <class T, std::size_t count> concept HasNameableFields = requires { typename Constant<fieldPointers<T, count>()>; };

template <class Field> struct FieldPointer {
    Field const* field;
};
template <class Field> FieldPointer(Field const*) -> FieldPointer<Field>;
template <FieldPointer field> consteval std::string_view spelling() { return __PRETTY_FUNCTION__; }

/// "born" of "… [P = FieldPointer<int>{&object.value.born}]" and of "…{(& object.Imagined<Person>::value.Person::born)}; …]".
consteval std::string_view lastName(std::string_view text) {
    auto const end = text.substr(0, text.rfind('}')).find_last_not_of(") ") + 1;
    auto const start = text.substr(0, end).find_last_of(".:") + 1;
    return text.substr(start, end - start);
}

template <auto pointers> constexpr void nameFields(std::string_view* names) {
    if constexpr (requires { pointers.first; }) {
        *names = lastName(spelling<FieldPointer{pointers.first}>());
        nameFields<pointers.rest>(names + 1);
    }
}

template <class T, std::size_t count>
inline constexpr auto fieldNames = [] {
    std::array<std::string_view, count> names;
    nameFields<fieldPointers<T, count>()>(names.data());
    return names;
}();

/// Aggregates whose fields can be bound and named.
template <class T>
concept NamedAggregate = std::is_aggregate_v<T> && std::is_class_v<T> && !std::is_array_v<T> &&
                         countOfFields<T>() <= mostFields && HasNameableFields<T, countOfFields<T>()>;

} // namespace Tessarin::reflection
