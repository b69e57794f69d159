#pragma once
#include "Tessarin/platform/foundation/values/Random.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include "Tessarin/platform/runtime/Value.h"
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

/// Operations on arrays: `std::vector` of anything, and `List`, whose elements are of mixed kinds. They take no lock.
///
///     List mixed{1, "a", 2, "a"};
///     Array::remove(mixed, "a");               // [1, 2, "a"]
///     if (auto const at = Array::indexOf(mixed, 2)) show(*at);
namespace Tessarin::Array {

template <class T>
concept WholeNumber = std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> && !std::same_as<T, char8_t> &&
                      !std::same_as<T, char16_t> && !std::same_as<T, char32_t> && !std::same_as<T, wchar_t>;

template <class T> inline constexpr bool isReference = false;
template <class T> inline constexpr bool isReference<Ref<T>> = true;
template <class T>
concept ObjectReference = std::convertible_to<T, Ref<NSObject const>> && isReference<T>;

/// Whether both lead to the same, seen as the common class; classes that have none are told apart by their complete objects.
template <class A, class B> bool isSame(A const* a, B const* b) {
    if constexpr (requires { a == b; })
        return a == b;
    else if constexpr (std::is_polymorphic_v<A> && std::is_polymorphic_v<B>)
        return dynamic_cast<void const*>(a) == dynamic_cast<void const*>(b);
    else
        return false;
}

/// Whether an element is of the type of `object`, and equal to it. Any two integers are of one type, and so are any two
/// numbers in a List; a reference is of the type of its object. Objects of the runtime are asked, others are equal when they are
/// the same.
template <class T, class U> bool matches(T const& element, U const& object) {
    if constexpr (std::is_same_v<T, Value> && ObjectReference<U>) {
        return object ? element.template objectAs<typename U::element_type>() && element == Value(object) : element.isAbsent();
    } else if constexpr (std::is_same_v<T, Value>) {
        if constexpr (std::constructible_from<Value, U const&>) return element == Value(object);
        return false; // of a type that no element can have
    } else if constexpr (WholeNumber<T> && WholeNumber<U>) {
        return std::cmp_equal(element, object);
    } else if constexpr (ObjectReference<T> && ObjectReference<U>) {
        if (element && !std::dynamic_pointer_cast<typename U::element_type>(element)) return false;
        return equal(element, object);
    } else if constexpr (isReference<T> && isReference<U>) {
        return isSame(element.get(), object.get());
    } else {
        return equal(element, object);
    }
}

/// The index of the first element of the type of `object` that is equal to it; absent when there is none. Any type will do that
/// can be compared.
template <class T, class U> std::optional<std::ptrdiff_t> indexOf(std::vector<T> const& values, U const& object) {
    for (std::size_t at = 0; at < values.size(); ++at)
        if (matches<T>(values[at], object)) return static_cast<std::ptrdiff_t>(at);
    return {};
}

template <class T, class U> bool contains(std::vector<T> const& values, U const& object) {
    return indexOf(values, object).has_value();
}

/// Removes the first element that `indexOf` would find, if any, and gives the array after that.
template <class T, class U> std::vector<T>& remove(std::vector<T>& values, U const& object) {
    if (auto const at = indexOf(values, object)) values.erase(values.begin() + *at);
    return values;
}

/// The element at `index`; absent when the array is shorter. Only the upper bound is tested: a negative index is fatal, as it
/// is in an ordinary subscript.
template <class T> std::optional<T> safe(std::vector<T> const& values, std::ptrdiff_t index) {
    if (index >= static_cast<std::ptrdiff_t>(values.size())) return {};
    if (index < 0) fatal("array index out of range");
    return values[static_cast<std::size_t>(index)];
}

/// An element chosen by the C library's `rand`, which is never seeded here; absent for an empty array.
template <class T> std::optional<T> any(std::vector<T> const& values) {
    if (values.empty()) return {};
    // The remainder favours early elements slightly; that is accepted.
    return values[static_cast<std::size_t>(std::rand()) % values.size()];
}

/// A copy in random order, every order equally likely. Fatal for an empty array, and for more than 2^32 - 1 elements.
template <class T> std::vector<T> shuffled(std::vector<T> const& values) {
    // The positions 0 to count - 2 cannot be formed for no elements: kept as it is, rather than giving an empty array.
    if (values.empty()) fatal("an empty array cannot be shuffled");
    if (values.size() > std::numeric_limits<std::uint32_t>::max()) fatal("an array of that size cannot be shuffled");
    auto copy = values;
    for (std::size_t at = 0; at + 1 < copy.size(); ++at)
        if (auto const from = at + randomBelow(static_cast<std::uint32_t>(copy.size() - at)); from != at) {
            T moved = std::move(copy[at]); // the elements of a vector<bool> are no references
            copy[at] = std::move(copy[from]);
            copy[from] = std::move(moved);
        }
    return copy;
}

} // namespace Tessarin::Array
