#pragma once
#include "Tessarin/descriptions/DeepDescription.h"
#include "Tessarin/descriptions/Describe.h"
#include <memory>

namespace Tessarin {

namespace descriptions {

using describing::Shape;

template <class T> inline constexpr auto shapeOf = describing::shapeOf<T, Fields::comesFirst<T>>();
template <class T> inline constexpr bool isShared = false;
template <class T> inline constexpr bool isShared<std::shared_ptr<T>> = true;
/// Data of the platform, and whatever else tells its bytes.
template <class T>
concept HoldsBytes = shapeOf<T> == Shape::Bytes || (shapeOf<T> == Shape::Described && requires(T const& value) {
                         { value.bytes() } -> std::same_as<std::span<std::byte const>>;
                     });
template <class T> inline constexpr bool isObject = std::is_convertible_v<T const*, NSObject const*>;
template <class T> inline constexpr bool isFields = shapeOf<T> == Shape::Fields && Reflectable<T>;
/// A range that can be counted before it is walked through.
template <class T> inline constexpr bool isList = shapeOf<T> == Shape::Range && std::ranges::forward_range<T const>;
/// Types that other nodes may lie in.
template <class T>
inline constexpr bool isNode =
    isFields<T> || isList<T> || shapeOf<T> == Shape::Tuple || std::same_as<T, Value> || std::same_as<T, Dictionary>;

template <class T> std::span<std::byte const> bytesOf(T const& value) {
    if constexpr (shapeOf<T> == Shape::Bytes)
        return {std::ranges::data(value), std::ranges::size(value)};
    else
        return value.bytes();
}

template <class T> void write(DeepDescription& walk, T const& value);
template <class T> void writeAt(DeepDescription& walk, void const* address) { write(walk, *static_cast<T const*>(address)); }

template <class T> void writeLine(DeepDescription& walk, T const& value) {
    DescriptionLine line;
    describing::describeInside<Fields>(line, value);
    walk.append(line.take());
}

template <class T> void writeNow(DeepDescription& walk, T const& value) {
    if (!walk.mayWriteNow()) return walk.append("(…)");
    DeepDescription::WritingNow const now(walk);
    write(walk, value);
}

/// An object is one and the same, whatever class a pointer to it has.
template <class T> auto const& asNode(T const& value) {
    if constexpr (isObject<T>)
        return static_cast<NSObject const&>(value);
    else
        return value;
}

/// A value inside of a node. `isLasting`: it stays where it is until the walk has ended.
template <class T> void writeChild(DeepDescription& walk, T const& child, bool isLasting) {
    if constexpr (shapeOf<T> == Shape::Optional) {
        child ? writeChild(walk, *child, isLasting) : walk.append("nil");
    } else if constexpr (shapeOf<T> == Shape::Weak) {
        writeChild(walk, child.lock(), false);
    } else if constexpr (shapeOf<T> == Shape::Variant) {
        if (child.valueless_by_exception()) return walk.append("nil");
        std::visit([&](auto const& held) { writeChild(walk, held, isLasting); }, child);
    } else if constexpr (shapeOf<T> == Shape::Pointer) {
        if (!child) return walk.append("nil");
        auto const& held = asNode(*child);
        constexpr auto writeHeld = &writeAt<std::remove_cvref_t<decltype(held)>>;
        if constexpr (isShared<T>)
            walk.writePointee(std::addressof(held), writeHeld, child);
        else if (isLasting)
            walk.writePointee(std::addressof(held), writeHeld, nullptr);
        else
            writeNow(walk, held);
    } else if constexpr (isNode<T>) {
        isLasting ? walk.writeLater(std::addressof(child), &writeAt<T>) : writeNow(walk, child);
    } else {
        write(walk, child);
    }
}

/// Only what lies inside of the node itself is sure to stay: a `reflect` may hand over temporaries.
template <class T, class Child> bool isPartOf(T const& node, Child const& child) {
    auto const* const start = reinterpret_cast<char const*>(std::addressof(node));
    auto const* const at = reinterpret_cast<char const*>(std::addressof(child));
    return at >= start && at + sizeof child <= start + sizeof node;
}

template <class T> void writeFields(DeepDescription& walk, void const* address) {
    auto const& node = *static_cast<T const*>(address);
    if (!walk.open(describing::typeName<T>)) return;
    std::size_t index = 0;
    forEachChild(node, [&](std::optional<std::string_view> label, auto const& child) {
        label ? walk.beginChild(*label) : walk.beginChild(index);
        ++index;
        writeChild(walk, child, walk.isLasting() && isPartOf(node, child));
    });
    walk.close();
}

inline std::string countOf(std::size_t count, char const* one, char const* more) {
    return std::to_string(count) + (count == 1 ? one : more);
}

template <class Range> std::size_t sizeOf(Range const& range) {
    std::size_t count = 0;
    if constexpr (requires { range.size(); })
        return static_cast<std::size_t>(range.size());
    else
        for (auto at = std::ranges::begin(range); at != std::ranges::end(range); ++at) ++count;
    return count;
}

template <class T> concept Entries = describing::MapLike<T> || std::same_as<T, Dictionary>;

template <class T> void writeRange(DeepDescription& walk, T const& range) {
    auto const count = sizeOf(range);
    if (count == 0) return walk.append(Entries<T> || describing::SetLike<T> ? "{}" : "[]");
    if (!walk.open(Entries<T> ? countOf(count, " entry", " entries") : countOf(count, " element", " elements"))) return;
    std::size_t index = 0;
    for (auto&& element : range) {
        if (index == walk.width()) break;
        if constexpr (Entries<T>) {
            auto const& [key, child] = element;
            DescriptionLine line;
            describing::describeInside<Fields>(line, key);
            walk.beginChild(line.take());
            writeChild(walk, child, walk.isLasting() && std::is_lvalue_reference_v<decltype(element)>);
        } else {
            using Element = std::ranges::range_value_t<T const>;
            constexpr bool isThere = std::is_lvalue_reference_v<std::ranges::range_reference_t<T const>>;
            walk.beginChild(index);
            writeChild<Element>(walk, element, isThere && walk.isLasting());
        }
        ++index;
    }
    if (count > index) walk.writeRest(count - index);
    walk.close();
}

template <class T> void writeTuple(DeepDescription& walk, T const& tuple) {
    if (!walk.open(countOf(std::tuple_size_v<T>, " value", " values"))) return;
    std::size_t index = 0;
    auto const writeEach = [&](auto const& each) {
        walk.beginChild(index++);
        writeChild(walk, each, walk.isLasting() && isPartOf(tuple, each));
    };
    std::apply([&](auto const&... each) { (writeEach(each), ...); }, tuple);
    walk.close();
}

inline void writeValue(DeepDescription& walk, Value const& value) {
    switch (value.kind()) {
    case Value::Kind::Data: return walk.writeBytes(value.bytes());
    case Value::Kind::Object: return writeChild(walk, value.object(), walk.isLasting());
    case Value::Kind::List: return writeRange(walk, value.list());
    case Value::Kind::Set: return writeRange(walk, value.set());
    case Value::Kind::Dictionary: return writeRange(walk, value.dictionary());
    case Value::Kind::ValueDictionary: return writeRange(walk, value.valueDictionary());
    default: return writeLine(walk, value);
    }
}

template <class T> void write(DeepDescription& walk, T const& value) {
    if constexpr (isObject<T>)
        walk.writeObject(value);
    else if constexpr (HoldsBytes<T>)
        walk.writeBytes(bytesOf(value));
    else if constexpr (isFields<T>)
        writeFields<T>(walk, std::addressof(value));
    else if constexpr (std::same_as<T, Value>)
        writeValue(walk, value);
    else if constexpr (isList<T> || std::same_as<T, Dictionary>)
        writeRange(walk, value);
    else if constexpr (shapeOf<T> == Shape::Tuple)
        writeTuple(walk, value);
    else if constexpr (shapeOf<T> == Shape::Optional || shapeOf<T> == Shape::Weak || shapeOf<T> == Shape::Variant ||
                       shapeOf<T> == Shape::Pointer)
        writeChild(walk, value, walk.isLasting());
    else
        writeLine(walk, value);
}

} // namespace descriptions

/// Any value in lines, one for each field and element, indented by their level:
///
///     Person
///       name: "Emma"
///       home: Address
///         city: "Highbury"
///       marks: 2 entries
///         "music": 2.5
///         "drawing": 2.0
///       portrait: 20512 bytes: 89 50 4E 47 0D 0A 1A 0A 00 00 00 0D 49 48 44 52 …
///
/// What several pointers lead to is written out once, with a number: "Person #1". Where it is met again it reads
/// "Person #1 (above)", or "Person #1 (leads back)" inside of itself. Single values read as in `describe`. Any thread, as far
/// as `value` may be read there; nothing of it may change meanwhile. The stack that it needs does not grow with the value.
template <class T> std::string describeDeeply(T const& value, DeepDescriptionOptions const& options = {}) {
    descriptions::DeepDescription walk(options);
    auto const& root = descriptions::asNode(value);
    return walk.describe(std::addressof(root), &descriptions::writeAt<std::remove_cvref_t<decltype(root)>>);
}

} // namespace Tessarin
