#pragma once
#include <cstddef>
#include <type_traits>
#include <utility>

// How many fields an aggregate has, found by trying with how many initialisers its braces can be filled. Nothing here runs.
namespace Tessarin::reflection {

/// Becomes whatever a field wants, but never the whole aggregate: that would be a copy.
template <class Whole> struct Anything {
    template <class Field>
        requires(!std::is_same_v<Field, Whole>)
    operator Field() const {
        __builtin_unreachable();
    }
};
/// Becomes only what Whole is derived from.
template <class Whole> struct AnyBase {
    template <class Base>
        requires(std::is_base_of_v<Base, Whole> && !std::is_same_v<Base, Whole>)
    operator Base() const {
        __builtin_unreachable();
    }
};
template <class Whole> struct AnyEmptyBase {
    template <class Base>
        requires(std::is_base_of_v<Base, Whole> && !std::is_same_v<Base, Whole> && std::is_empty_v<Base>)
    operator Base() const {
        __builtin_unreachable();
    }
};

template <class Initialiser, std::size_t> using Repeated = Initialiser;

template <class T, template <class> class Leading, std::size_t... Before, std::size_t... After>
constexpr bool canBeFilled(std::index_sequence<Before...>, std::index_sequence<After...>) {
    return requires { T{Repeated<Leading<T>, Before>{}..., Repeated<Anything<T>, After>{}...}; };
}
template <class T, std::size_t... Before, std::size_t... After>
constexpr bool canBeFilledAroundBraces(std::index_sequence<Before...>, std::index_sequence<After...>) {
    return requires { T{Repeated<Anything<T>, Before>{}..., {}, Repeated<Anything<T>, After>{}...}; };
}

template <class T, std::size_t count>
inline constexpr bool takes = canBeFilled<T, Anything>(std::make_index_sequence<count>(), std::index_sequence<>());
template <class T, template <class> class Base, std::size_t bases, std::size_t rest>
inline constexpr bool takesBases = canBeFilled<T, Base>(std::make_index_sequence<bases>(), std::make_index_sequence<rest>());
template <class T, std::size_t before, std::size_t after>
inline constexpr bool takesBraces =
    canBeFilledAroundBraces<T>(std::make_index_sequence<before>(), std::make_index_sequence<after>());

inline constexpr std::size_t uncountable = static_cast<std::size_t>(-1);
inline constexpr std::size_t mostRequired = 256; // up to the last field without a default; elements of arrays count singly

/// The fewest initialisers: more than none where a field has no default.
template <class T, std::size_t count = 0> consteval std::size_t fewestInitialisers() {
    if constexpr (takes<T, count>)
        return count;
    else if constexpr (count < mostRequired && count <= sizeof(T))
        return fewestInitialisers<T, count + 1>();
    else
        return uncountable;
}

/// The most of them, between `taken` and `taken + step`, both doubled until that fails: an array counts with each element,
/// because its own braces may be left out.
template <class T, std::size_t taken, std::size_t step = 1, bool grows = true> consteval std::size_t mostInitialisers() {
    if constexpr (takes<T, taken + step>)
        return mostInitialisers<T, taken + step, (grows ? step * 2 : step), grows>();
    else if constexpr (step > 1)
        return mostInitialisers<T, taken, step / 2, false>();
    else
        return taken;
}

template <class T, std::size_t total, std::size_t at, std::size_t width>
inline constexpr bool fitsWidth = at + width <= total && takesBraces<T, at, (at + width <= total ? total - at - width : 0)>;

/// The smallest width that fits, between `low`, which does not, and `high`, which does.
template <class T, std::size_t total, std::size_t at, std::size_t low, std::size_t high> consteval std::size_t widthBetween() {
    constexpr auto middle = (low + high) / 2;
    if constexpr (high - low == 1)
        return high;
    else if constexpr (fitsWidth<T, total, at, middle>)
        return widthBetween<T, total, at, low, middle>();
    else
        return widthBetween<T, total, at, middle, high>();
}

/// With empty braces at a field fewer others find room when the field is an array: how many initialisers it takes alone.
template <class T, std::size_t total, std::size_t at, std::size_t width = 1> consteval std::size_t widthOfField() {
    if constexpr (fitsWidth<T, total, at, width>)
        return width;
    else if constexpr (at + width >= total)
        return 1; // no empty braces for it: no array, but a field that has its default from outside its type, or none
    else if constexpr (!takes<T, 0>)
        return widthOfField<T, total, at, width + 1>();
    else if constexpr (fitsWidth<T, total, at, total - at>) // the widths that fit are then those from one on
        return widthBetween<T, total, at, width, total - at>();
    else
        return 1;
}

template <class T, std::size_t total, std::size_t at, std::size_t count = 0> consteval std::size_t fieldsFrom() {
    if constexpr (at >= total)
        return count;
    else
        return fieldsFrom<T, total, at + widthOfField<T, total, at>(), count + 1>();
}

template <class T, template <class> class Base, std::size_t total, std::size_t count = 0> consteval std::size_t basesOf() {
    if constexpr (count < total) {
        if constexpr (takesBases<T, Base, count + 1, total - count - 1>) return basesOf<T, Base, total, count + 1>();
    }
    return count;
}

/// The fields that the aggregate itself declares, without bases; `uncountable` when it cannot be told, or when a base has
/// fields too, so that they cannot be bound by name.
template <class T> consteval std::size_t countOfFields() {
    constexpr auto fewest = fewestInitialisers<T>();
    if constexpr (fewest == uncountable) {
        return uncountable;
    } else {
        constexpr auto total = mostInitialisers<T, fewest>();
        constexpr auto bases = basesOf<T, AnyBase, total>();
        constexpr auto fields = fieldsFrom<T, total, bases>();
        return fields == 0 || bases == basesOf<T, AnyEmptyBase, total>() ? fields : uncountable;
    }
}

} // namespace Tessarin::reflection
