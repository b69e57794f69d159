#pragma once
#include "Tessarin/keyaccess/Reflection.h"

// Finding a child by its label: without a walk over all of them where the type knows a shorter way.
namespace Tessarin::reflection {

template <class Map>
concept FindsText = TextKeyed<Map> && requires(Map const& map, typename Map::key_type const& key) {
    { map.find(key) == map.end() } -> std::convertible_to<bool>;
    map.at(key); // one entry per key
    requires std::constructible_from<typename Map::key_type, std::string_view>;
};

template <class Map> auto findText(Map const& map, std::string_view key) {
    if constexpr (requires { map.find(key); })
        return map.find(key);
    else
        return map.find(typename Map::key_type(key));
}

template <class T, class Found> bool withFirstField(T const& aggregate, std::string_view label, Found&& found) {
    constexpr auto count = countOfFields<T>();
    return visitFields<count>(aggregate, [&](auto const&... fields) {
        return [&]<std::size_t... at>(std::index_sequence<at...>) {
            return ((fieldNames<T, count>[at] == label && (found(fields), true)) || ...);
        }(std::make_index_sequence<count>());
    });
}

/// Calls `found` with the first child of that label. False when there is none.
template <class T, class Found> bool withFirstChild(T const& value, std::string_view label, Found&& found) {
    if constexpr (CustomReflectable<T>) {
        bool done = false;
        forEachChild(value, [&](std::optional<std::string_view> each, auto const& child) {
            if (done || each != label) return;
            done = true;
            found(child);
        });
        return done;
    } else if constexpr (std::same_as<T, Value>) {
        if (value.kind() == Value::Kind::Dictionary) return withFirstChild(value.dictionary(), label, found);
        return value.kind() == Value::Kind::ValueDictionary && withFirstChild(value.valueDictionary(), label, found);
    } else if constexpr (std::same_as<T, Dictionary>) {
        auto const* const child = value.find(label);
        if (child) found(*child);
        return child != nullptr;
    } else if constexpr (std::same_as<T, ValueDictionary>) {
        auto const at = value.find(Value(label));
        if (at != value.end()) found(at->second);
        return at != value.end();
    } else if constexpr (Holding<T>) {
        return value && withFirstChild(*value, label, found);
    } else if constexpr (FindsText<T>) {
        auto const at = findText(value, label);
        if (at == value.end() || textLikeView(at->first) != label) return false; // its order may take other texts for the same
        found(at->second);
        return true;
    } else if constexpr (TextKeyed<T>) {
        for (auto const& entry : value)
            if (textLikeView(entry.first) == label) return found(entry.second), true;
        return false;
    } else if constexpr (Iterable<T> || !Reflectable<T>) {
        return false; // children without labels, or none
    } else {
        return withFirstField(value, label, found);
    }
}

} // namespace Tessarin::reflection
