#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/Ref.h"
#include "Tessarin/platform/runtime/Selector.h"
#include "Tessarin/platform/runtime/SelectorTable.h"
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <typeinfo>

namespace Tessarin {

namespace detail {

/// NSObject unless T or a base of it names another one: `using RegisteredSuperclass = …`.
template <class T> struct SuperclassOf {
    using Type = NSObject;
};
template <class T>
    requires(!std::is_same_v<T, typename T::RegisteredSuperclass>)
struct SuperclassOf<T> {
    using Type = typename T::RegisteredSuperclass;
};

} // namespace detail

template <class T, class Base = typename detail::SuperclassOf<T>::Type> Class const& registerClass();

/// A class of the runtime: its name ("App.Editor" for App::Editor), its superclass, the selectors it answers, and how to
/// make one. One per C++ class, made on first use, never destroyed. Any thread.
class TESSARIN_API Class {
public:
    std::string const& name() const noexcept { return name_; }
    Class const* superclass() const noexcept { return superclass_.load(std::memory_order_acquire); }
    bool isSubclassOf(Class const& other) const noexcept;
    /// What `T::ownHooks<T>()`, mostly inherited, said at the registration: which of a base's hooks the class overrides.
    std::uint32_t ownHooks() const noexcept { return ownHooks_.load(std::memory_order_acquire); }

    /// The entry of this class or its nearest superclass that answers `selector`; null when none does.
    SelectorTable::Entry const* find(Selector selector) const noexcept;
    /// Whether the class itself, or a superclass, answers: static members in its `selectors()`.
    bool respondsToSelector(Selector selector) const noexcept { return findOfClass(selector) != nullptr; }
    /// Sends a message to the class. Fatal as `invoke` of an object is.
    Value invoke(Selector selector, std::initializer_list<Value> arguments = {}) const;
    /// A new object made with the plain `init()`; null when the class was registered without one.
    Ref<NSObject> makeObject() const {
        auto const factory = factory_.load(std::memory_order_acquire);
        return factory ? factory() : nullptr;
    }

private:
    template <class T> friend Class const& classOf();
    template <class T, class Base> friend Class const& registerClass();
    using Factory = Ref<NSObject> (*)();

    SelectorTable::Entry const* findOfClass(Selector selector) const noexcept;
    static Class& made(std::type_info const& type, SelectorTable selectors);
    void publish(Class const* superclass, Factory factory, std::uint32_t ownHooks);

    std::string name_; // constant, as is the table: whoever has found an entry may keep it for good
    SelectorTable selectors_;
    std::atomic<Class const*> superclass_{nullptr}; // these three from its registration on
    std::atomic<Factory> factory_{nullptr};
    std::atomic<std::uint32_t> ownHooks_{0};
};

/// The class object of T. Before `registerClass<T>()` it is not found by name, has no superclass, and answers what
/// `T::selectors()` lists, be that T's own or inherited from a base.
template <class T> Class const& classOf() {
    static Class& shared = []() -> Class& {
        SelectorTable selectors;
        if constexpr (requires { T::selectors(); }) selectors = T::selectors();
        return Class::made(typeid(T), std::move(selectors));
    }();
    return shared;
}

/// Makes T known by name, with its superclass, whose selectors it answers, too: NSObject, for managed objects NSManagedObject,
/// unless another one is given. Call it once, before objects of T are used: at the start of `main` or from a static of the .cpp
/// file. Later will do for whoever needs neither before; calling it again changes nothing. The selectors are those that the static
/// `selectors()` lists.
///
///     SelectorTable Editor::selectors() { return {{"reload:"_sel, &Editor::reload}}; }
///     registerClass<Editor>();
template <class T, class Base> Class const& registerClass() {
    static_assert(std::is_base_of_v<Base, T>);
    static bool const once = [] {
        SelectorTable table;
        // A subclass that lists none of its own must not list its base's a second time.
        if constexpr (requires { T::selectors(); }) table = T::selectors();
        Class::Factory factory = nullptr;
        if constexpr (requires(detail::Made<T>& object) { object.start(); } && !std::is_abstract_v<detail::Made<T>>)
            factory = []() -> Ref<NSObject> { return make<T>(); };
        std::uint32_t hooks = 0;
        if constexpr (requires { T::template ownHooks<T>(); }) hooks = T::template ownHooks<T>();
        Class::made(typeid(T), std::move(table)).publish(std::is_same_v<T, Base> ? nullptr : &classOf<Base>(), factory, hooks);
        return true;
    }();
    static_cast<void>(once);
    return classOf<T>();
}

/// The registered class of that name, or null.
TESSARIN_API Class const* classNamed(std::string_view name);

} // namespace Tessarin
