#pragma once
#include <concepts>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Tessarin {

namespace detail {
/// A slot of any value reads as whatever the value says that it reads as.
template <class V, class T> concept ReadFrom = requires { requires V::template readsAs<T>; };
} // namespace detail

/// What a subscript that reads and writes returns: `home["name"] = x` calls `home.setSlot(key, x)`, and reading calls
/// `home.slot(key)`. It converts only as an rvalue, so that `auto v = home["name"]` cannot keep a reference by accident.
/// One of any value reads as what it is kept in: `std::string title = object["title"]`; a value of another kind reads as the
/// type's zero.
/// `home[key] += x` reads and then writes: between the two another thread may come.
template <class Home, class Key, class V> class Slot {
public:
    Slot(Home& home, Key key) noexcept : home_(home), key_(std::move(key)) {}
    Slot(Slot const&) = delete;
    Slot& operator=(Slot const&) = delete;

    operator V() && { return home_.slot(key_); }
    template <class T>
        requires detail::ReadFrom<V, T>
    operator T() && {
        return V(home_.slot(key_)).template as<T>().value_or(T());
    }
    operator std::string_view() &&
            requires detail::ReadFrom<V, std::string>
        = delete; // of a value that would be gone
    template <class T> operator std::optional<T>() && = delete; // object["bought"].get().as<NSDate>()
    // A slot is no value: auto title = object["title"].get(), or Value title = object["title"].
    template <class T> operator T() & = delete;
    V get() && { return home_.slot(key_); }
    void operator=(V value) && { home_.setSlot(key_, std::move(value)); }
    template <class By>
        requires requires(V& value, By const& by) { value += by; }
    void operator+=(By const& by) && {
        if constexpr (requires { home_.modifySlot(key_, [](V&) {}); }) {
            home_.modifySlot(key_, [&](V& value) { value += by; });
        } else {
            V value = home_.slot(key_);
            value += by;
            home_.setSlot(key_, std::move(value));
        }
    }

private:
    Home& home_;
    Key key_;
};

template <class T> inline constexpr bool isSlot = false;
template <class Home, class Key, class V> inline constexpr bool isSlot<Slot<Home, Key, V>> = true;

template <class Home, class Key, class V, class Other>
    requires(!isSlot<Other>) && requires(V const& value, Other const& other) {
        { value == other } -> std::convertible_to<bool>;
    }
bool operator==(Slot<Home, Key, V>&& slot, Other const& other) {
    return std::move(slot).get() == other;
}
template <class Home, class Key, class V, class OtherHome, class OtherKey, class Other>
bool operator==(Slot<Home, Key, V>&& slot, Slot<OtherHome, OtherKey, Other>&& other) {
    return std::move(slot).get() == std::move(other).get();
}
template <class Home, class Key, class V>
    requires requires(std::ostream& out, V const& value) { out << value; }
std::ostream& operator<<(std::ostream& out, Slot<Home, Key, V>&& slot) {
    return out << std::move(slot).get();
}

/// Whoever kept a slot instead of the value is told so.
template <class Home, class Key, class V, class Other>
    requires(!isSlot<Other>)
bool operator==(Slot<Home, Key, V> const&, Other const&) {
    static_assert(sizeof(Home) == 0, "this is a slot, no value: auto title = object[\"title\"].get()");
    return false;
}
template <class Home, class Key, class V> std::ostream& operator<<(std::ostream& out, Slot<Home, Key, V> const&) {
    static_assert(sizeof(Home) == 0, "this is a slot, no value: auto title = object[\"title\"].get()");
    return out;
}

} // namespace Tessarin
