#pragma once
#include "Tessarin/platform/foundation/values/DescriptionLine.h"
#include "Tessarin/platform/foundation/values/ValueShapes.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <ostream>

// The core of descriptions: values, texts, enumerations, containers, and what is held. `Fields` stands for what knows more:
//
//     struct Fields {
//         template <class T> static constexpr bool comesFirst = …;                        // it describes T before anybody else
//         template <class T> static void describe(DescriptionLine& line, T const& value); // and what nobody else can
//     };
namespace Tessarin::describing {

template <class Fields, class T> void describeInto(DescriptionLine& line, T const& value);

template <class Fields, class T> void describeInside(DescriptionLine& line, T const& value) {
    DescriptionLine::Inside const inside(line);
    describeInto<Fields>(line, value);
}

template <class C> void appendWideText(DescriptionLine& line, std::basic_string_view<C> text) {
    if constexpr (sizeof(C) == 1)
        line.appendText(std::string_view{reinterpret_cast<char const*>(text.data()), text.size()});
    else if constexpr (sizeof(C) == 2)
        line.appendText(std::u16string_view{reinterpret_cast<char16_t const*>(text.data()), text.size()});
    else
        line.appendText(std::u32string_view{reinterpret_cast<char32_t const*>(text.data()), text.size()});
}

template <class T> void appendNumber(DescriptionLine& line, T value) {
    if constexpr (std::same_as<T, bool>)
        line.append(value ? "true" : "false");
    else if constexpr (std::same_as<T, char>)
        line.appendText(std::string_view{&value, 1});
    else if constexpr (isWideCharacter<T>)
        appendWideText(line, std::basic_string_view<T>{&value, 1});
    else if constexpr (std::same_as<T, float>)
        line.appendNumber(value);
    else if constexpr (std::is_floating_point_v<T>)
        line.appendNumber(static_cast<double>(value));
    else if constexpr (std::is_signed_v<T>)
        line.appendNumber(static_cast<std::int64_t>(value));
    else
        line.appendNumber(static_cast<std::uint64_t>(value));
}

/// "Dark"; "Mode(9)" for a value without a name.
template <class T> void appendCase(DescriptionLine& line, T value) {
    if (auto const name = nameOfCase(value); !std::string_view{name}.empty()) return line.append(std::string_view{name});
    line.append(typeName<T>);
    line.append('(');
    if constexpr (std::is_enum_v<T>)
        appendNumber(line, +static_cast<std::underlying_type_t<T>>(value));
    else
        line.appendNumber(value.rawValue());
    line.append(')');
}

template <class Fields, class T> void appendPointee(DescriptionLine& line, T const& object) {
    auto const* const address = static_cast<void const*>(std::addressof(object));
    if (!line.mayFollow(address)) {
        if constexpr (std::is_convertible_v<T const*, NSObject const*>)
            return line.appendMention(static_cast<NSObject const&>(object));
        else
            return line.appendMention(typeName<T>);
    }
    DescriptionLine::Pointee const pointee(line, address);
    describeInto<Fields>(line, object);
}

/// "[1, 2]", "{1, 2}" of a set, "{"a": 1}" of a map.
template <class Fields, class T> void appendRange(DescriptionLine& line, T const& range) {
    constexpr auto ends = MapLike<T> || SetLike<T> ? std::string_view{"{}"} : std::string_view{"[]"};
    line.append(ends[0]);
    DescriptionLine::Inside const inside(line);
    std::string_view separator;
    for (auto const& element : range) {
        line.append(separator);
        separator = ", ";
        if (!line.isOpen()) {
            line.append("…");
            break;
        }
        if constexpr (MapLike<T>) {
            describeInto<Fields>(line, element.first);
            line.append(": ");
            describeInto<Fields>(line, element.second);
        } else {
            describeInto<Fields, std::ranges::range_value_t<T const>>(line, element);
        }
    }
    line.append(ends[1]);
}

/// "(1, true)".
template <class Fields, class T> void appendTuple(DescriptionLine& line, T const& tuple) {
    line.append('(');
    std::string_view separator;
    auto const append = [&](auto const& each) {
        line.append(separator);
        separator = ", ";
        describeInside<Fields>(line, each);
    };
    std::apply([&](auto const&... each) { (append(each), ...); }, tuple);
    line.append(')');
}

template <class Fields, class T> void describeInto(DescriptionLine& line, T const& value) {
    constexpr auto shape = shapeOf<T, Fields::template comesFirst<T>>();
    if constexpr (shape == Shape::Nothing) {
        line.append("nil");
    } else if constexpr (shape == Shape::Number) {
        appendNumber(line, value);
    } else if constexpr (shape == Shape::Text) {
        auto const text = reflection::textLikeView(value);
        text ? line.appendText(*text) : line.append("nil");
    } else if constexpr (shape == Shape::WideText) {
        auto const text = wideView(value);
        std::is_pointer_v<T> && !text.data() ? line.append("nil") : appendWideText(line, text);
    } else if constexpr (shape == Shape::Value) {
        line.appendValue(Value(value));
    } else if constexpr (shape == Shape::Described) {
        line.appendOwn(std::addressof(value), [&]() -> std::string { return value.description(); });
    } else if constexpr (shape == Shape::Case) {
        appendCase(line, value);
    } else if constexpr (shape == Shape::Address) {
        line.appendAddress(reinterpret_cast<void const*>(value));
    } else if constexpr (shape == Shape::Optional) {
        value ? describeInto<Fields>(line, *value) : line.append("nil");
    } else if constexpr (shape == Shape::Weak) {
        describeInto<Fields>(line, value.lock());
    } else if constexpr (shape == Shape::Pointer) {
        value ? appendPointee<Fields>(line, *value) : line.append("nil");
    } else if constexpr (shape == Shape::Variant) {
        if (value.valueless_by_exception()) return line.append("nil");
        std::visit([&](auto const& held) { describeInto<Fields>(line, held); }, value);
    } else if constexpr (shape == Shape::Bytes) {
        line.append("data(");
        line.appendNumber(static_cast<std::uint64_t>(std::ranges::size(value)));
        line.append(" bytes)");
    } else if constexpr (shape == Shape::Failure) {
        line.append(std::string_view{value.what()});
    } else if constexpr (shape == Shape::Path) {
        line.appendText(std::string_view{value.native()});
    } else if constexpr (shape == Shape::Streamed) {
        line.appendStreamed([&](std::ostream& out) { out << value; });
    } else if constexpr (shape == Shape::Range) {
        appendRange<Fields>(line, value);
    } else if constexpr (shape == Shape::Tuple) {
        appendTuple<Fields>(line, value);
    } else {
        Fields::describe(line, value);
    }
}

} // namespace Tessarin::describing
