#pragma once
#include "Tessarin/keyaccess/AggregateNames.h"
#include "Tessarin/platform/runtime/TypeShapes.h"
#include "Tessarin/platform/runtime/Value.h"
#include <concepts>
#include <optional>
#include <string_view>

namespace Tessarin {

namespace reflection {

/// Stands for any visitor of children where a type's `reflect` is looked for.
struct SomeVisitor {
    template <class Child> void operator()(std::optional<std::string_view>, Child const&) const {}
};

template <class T> concept ReflectsAsMember = requires(T const& value, SomeVisitor const& visitor) { value.reflect(visitor); };
template <class T>
concept ReflectsBeside =
    !ReflectsAsMember<T> && requires(T const& value, SomeVisitor const& visitor) { reflect(value, visitor); };
template <class T> concept Complete = requires { sizeof(T); };
template <class T>
concept DynamicValue = std::same_as<T, Value> || std::same_as<T, Dictionary> || std::same_as<T, ValueDictionary>;
template <class T>
concept TextKeyed = Iterable<T> && requires(std::ranges::range_reference_t<T const> entry) {
    entry.second;
    requires TextLike<std::remove_cvref_t<decltype(entry.first)>>;
};

} // namespace reflection

/// How a type tells its children, if it has none by itself or others than it would have: a member, or a function in its
/// namespace.
///
///     template <class Visitor> void reflect(Visitor&& child) const { child("name", name_), child("age", age()); }
///     template <class Visitor> void reflect(Point const& p, Visitor&& child) { child("x", p.x()), child("y", p.y()); }
///
/// A child without label: `child(std::nullopt, value)`. A value may be a temporary.
template <class T> concept CustomReflectable = reflection::ReflectsAsMember<T> || reflection::ReflectsBeside<T>;

/// What has children: a type with `reflect`; a Value or dictionary; optionals and pointers to such; maps with text keys; other
/// ranges, whose children have no labels; aggregates of at most 40 fields without references, bit-fields and unions without a
/// name, whose bases are empty. Texts have none.
template <class T>
concept Reflectable = CustomReflectable<T> || reflection::DynamicValue<T> || reflection::Holding<T> || reflection::Iterable<T> ||
                      (reflection::Complete<T> && !reflection::TextLike<T> && reflection::NamedAggregate<T>);

template <class T, class Visitor> void forEachChild(T const& value, Visitor&& visitor);

namespace reflection {

template <class Visitor> void forEachDynamicChild(Value const& value, Visitor& visitor) {
    if (value.kind() == Value::Kind::Dictionary) return forEachChild(value.dictionary(), visitor);
    if (value.kind() == Value::Kind::ValueDictionary) return forEachChild(value.valueDictionary(), visitor);
    for (auto const& element : value.list()) visitor(std::nullopt, element);
    for (auto const& element : value.set()) visitor(std::nullopt, element);
}

} // namespace reflection

/// Calls `visitor(std::optional<std::string_view> label, child)` for each child in order; what is not Reflectable has none.
/// The children of an absent optional or a null pointer are none.
template <class T, class Visitor> void forEachChild(T const& value, Visitor&& visitor) {
    if constexpr (reflection::ReflectsAsMember<T>) {
        value.reflect(visitor);
    } else if constexpr (reflection::ReflectsBeside<T>) {
        reflect(value, visitor);
    } else if constexpr (std::same_as<T, Value>) {
        reflection::forEachDynamicChild(value, visitor);
    } else if constexpr (std::same_as<T, Dictionary>) {
        for (auto const& [key, child] : value) visitor(key.view(), child);
    } else if constexpr (std::same_as<T, ValueDictionary>) {
        for (auto const& [key, child] : value) visitor(key.isText() ? std::optional(key.text()) : std::nullopt, child);
    } else if constexpr (reflection::Holding<T>) {
        if (value) forEachChild(*value, visitor);
    } else if constexpr (reflection::TextKeyed<T>) {
        for (auto const& entry : value) visitor(reflection::textLikeView(entry.first), entry.second);
    } else if constexpr (reflection::Iterable<T>) {
        for (auto const& element : value) visitor(std::nullopt, element);
    } else if constexpr (Reflectable<T>) {
        constexpr auto count = reflection::countOfFields<T>();
        reflection::visitFields<count>(value, [&](auto const&... fields) {
            [[maybe_unused]] auto const* name = reflection::fieldNames<T, count>.data();
            (visitor(*name++, fields), ...);
        });
    }
}

} // namespace Tessarin
