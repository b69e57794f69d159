#pragma once
#include <memory>
#include <type_traits>
#include <utility>

namespace Tessarin {

/// A shared resource. Null stands for "absent".
template <class T> using Ref = std::shared_ptr<T>;
/// Remembers a resource without keeping it alive.
template <class T> using WeakRef = std::weak_ptr<T>;

class Class;
class NSObject;
template <class T> Class const& classOf();

namespace detail {

/// The concrete object behind every reference-type instance: gives access to the protected constructor and initialisers.
template <class T> struct Made : T {
    template <class... Arguments>
    void start(Arguments&&... arguments)
        requires requires { this->init(std::forward<Arguments>(arguments)...); }
    {
        this->init(std::forward<Arguments>(arguments)...);
    }
};

/// The same for objects of the runtime, which also know their class.
template <class T>
    requires std::is_base_of_v<NSObject, T>
struct Made<T> : T {
    template <class... Arguments>
    void start(Arguments&&... arguments)
        requires requires { this->init(std::forward<Arguments>(arguments)...); }
    {
        this->init(std::forward<Arguments>(arguments)...);
    }
    Class const& objectClass() const override { return classOf<T>(); }
};

/// A class whose objects are made in great numbers names an allocator for them.
template <class T> auto allocated() {
    if constexpr (requires { typename T::template ObjectAllocator<Made<T>>; })
        return std::allocate_shared<Made<T>>(typename T::template ObjectAllocator<Made<T>>());
    else
        return std::make_shared<Made<T>>();
}

} // namespace detail

/// Makes a reference-type object: the trivial protected constructor, then the virtual `init(arguments…)`, so that a step
/// during creation reaches an override in a subclass and `shared_from_this` works inside `init`.
///
///     auto queue = make<Dispatcher>(QueueOptions{.identifier = "images"});
template <class T, class... Arguments> Ref<T> make(Arguments&&... arguments) {
    constexpr bool isKnown = requires(detail::Made<T>& made) { made.start(std::forward<Arguments>(arguments)...); };
    static_assert(isKnown, "make<T>(…): T has no init that takes these arguments; its header lists the ways, as init(…)");
    if constexpr (isKnown) {
        auto object = detail::allocated<T>();
        object->start(std::forward<Arguments>(arguments)...);
        return object;
    } else {
        return Ref<T>{};
    }
}

} // namespace Tessarin
