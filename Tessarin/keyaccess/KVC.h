#pragma once
#include "Tessarin/keyaccess/FirstChild.h"
#include "Tessarin/keyaccess/ValueConversion.h"

namespace Tessarin {

namespace reflection {

template <class T> struct KeyPathWalk {
    std::string_view last; // the text of the path's last component
    std::optional<T> result = {};

    /// `rest` begins with the next component; absent when there is none.
    template <class From> void walk(From const& from, std::optional<std::string_view> rest) {
        if constexpr (Reflectable<From>) {
            while (rest) {
                auto const end = rest->find('.');
                auto const component = rest->substr(0, end);
                rest = end == std::string_view::npos ? std::nullopt : std::optional(rest->substr(end + 1));
                // Texts are compared, not places: the path a.b.a ends at the first a. That is how paths have always been read.
                auto const visit = [&](auto const& child) {
                    if (component == last)
                        result = convertedTo<T>(child);
                    else
                        walk(child, rest);
                };
                if (withFirstChild(from, component, visit)) return;
                // A component that nothing is called by is left out: x.b finds b where there is no x. On purpose, too.
            }
        }
    }
};

template <class T> constexpr bool isReceiver() {
    static_assert(Reflectable<T>, "this type has no children to be found by key: it is neither an aggregate of at most 40 fields "
                                  "(without references, bit-fields, and bases that have fields) nor a map, range, optional or "
                                  "pointer; give it a `template <class Visitor> void reflect(Visitor&& child) const`");
    return true;
}
template <class T> constexpr bool isResult() {
    static_assert(std::copy_constructible<T>, "a value is found by key as a copy: ask for a type that can be copied");
    return true;
}

} // namespace reflection

/// The value of the first child that `key` is the label of, as a T; absent without one, and when it is no T. A later child of
/// the same label is not looked at. Types must match; see `convertedTo`. Reads only: as safe on several threads as `object`.
///
///     struct Person { std::string name; int born; std::optional<Address> home; };
///     valueForKey<int>(emma, "born");                      // 1815
///     valueForKeyPath<std::string>(emma, "home.city");
template <class T, class Object> std::optional<T> valueForKey(Object const& object, std::string_view key) {
    std::optional<T> result;
    if constexpr (reflection::isReceiver<Object>() && reflection::isResult<T>() && Reflectable<Object>)
        reflection::withFirstChild(object, key, [&](auto const& child) { result = convertedTo<T>(child); });
    return result;
}

/// The same along a path of labels with "." between them. A component that is not found is left out, and the path ends where
/// a component is found that reads like its last one: a.b.a gives the first a.
template <class T, class Object> std::optional<T> valueForKeyPath(Object const& object, std::string_view path) {
    reflection::KeyPathWalk<T> walk{path.substr(path.rfind('.') + 1)};
    if constexpr (reflection::isReceiver<Object>() && reflection::isResult<T>()) walk.walk(object, path);
    return std::move(walk.result);
}

/// A type that derives from `KVC<itself>` has both as members.
///
///     struct Person : KVC<Person> { std::string name; };
///     person.valueForKey<std::string>("name");
template <class Self> struct KVC {
    template <class T> std::optional<T> valueForKey(std::string_view key) const {
        return Tessarin::valueForKey<T>(static_cast<Self const&>(*this), key);
    }
    template <class T> std::optional<T> valueForKeyPath(std::string_view path) const {
        return Tessarin::valueForKeyPath<T>(static_cast<Self const&>(*this), path);
    }
    friend bool operator==(KVC const&, KVC const&) = default; // so that a deriving type may default its own
};

} // namespace Tessarin
