#pragma once
#include "Tessarin/keyaccess/FirstChild.h"
#include "Tessarin/keyaccess/ValueConversion.h"

namespace Tessarin {

namespace reflection {

template <class T> class KeyPathWalk {
public:
    explicit KeyPathWalk(std::string_view path) : path_(path), last_(path.substr(path.rfind('.') + 1)) {}

    /// On from the component that begins at `at`; behind the path's end there is none.
    template <class From> void walk(From const& from, std::size_t at = 0) {
        if constexpr (Reflectable<From>) {
            while (at <= path_.size()) {
                auto const dot = path_.find('.', at);
                auto const end = dot == path_.npos ? path_.size() : dot;
                auto const component = path_.substr(at, end - at);
                at = end + 1;
                // Texts are compared, not places: the path a.b.a ends at the first a. That is how paths have always been read.
                auto const visit = [&](auto const& child) {
                    if (component == last_)
                        convertInto(result, child);
                    else
                        walk(child, at);
                };
                if (withFirstChild(from, component, visit)) return;
                // A component that nothing is called by is left out: x.b finds b where there is no x. On purpose, too.
            }
        }
    }

    std::optional<T> result;

private:
    std::string_view path_;
    std::string_view last_; // the text of its last component
};

/// Also whether what an optional or pointer holds has any.
template <class T> constexpr bool hasChildren() {
    if constexpr (Holding<T> && !CustomReflectable<T>)
        return hasChildren<std::remove_cvref_t<decltype(*std::declval<T const&>())>>();
    else
        return Reflectable<T>;
}
template <class T> constexpr bool isReceiver() {
    static_assert(hasChildren<T>(),
                  "this type has no children to be found by key: it is neither an aggregate of at most 40 fields "
                  "(without references, bit-fields, and bases that have fields), nor a map or range, nor an optional "
                  "or pointer to such; give it a `template <class Visitor> void reflect(Visitor&& child) const`");
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
        reflection::withFirstChild(object, key, [&](auto const& child) { reflection::convertInto(result, child); });
    return result;
}

/// The same along a path of labels with "." between them. A component that is not found is left out, and the path ends where
/// a component is found that reads like its last one: a.b.a gives the first a.
template <class T, class Object> std::optional<T> valueForKeyPath(Object const& object, std::string_view path) {
    reflection::KeyPathWalk<T> walk(path);
    if constexpr (reflection::isReceiver<Object>() && reflection::isResult<T>()) walk.walk(object);
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
