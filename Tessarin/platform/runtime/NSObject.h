#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Class.h"
#include "Tessarin/platform/runtime/Ref.h"
#include "Tessarin/platform/runtime/Selector.h"
#include "Tessarin/platform/runtime/StaticText.h"
#include "Tessarin/platform/runtime/Value.h"
#include <atomic>
#include <cstddef>
#include <initializer_list>
#include <iosfwd>
#include <memory>
#include <string>
// What other rooms add to every object:
#include "Tessarin/notifications/NSObject+Observing.h"

namespace Tessarin {

/// The root of the object runtime. Identity, equality, hash and description may be overridden; a subclass that answers
/// selectors lists them in a static `selectors()` and is registered with `registerClass`.
class TESSARIN_API NSObject : public std::enable_shared_from_this<NSObject>, public NSObjectObserving {
public:
    virtual ~NSObject();
    NSObject(NSObject const&) = delete;
    NSObject& operator=(NSObject const&) = delete;

    virtual Class const& objectClass() const;
    virtual bool isEqual(NSObject const& other) const { return this == &other; }
    virtual std::size_t hash() const { return std::hash<void const*>{}(this); }
    virtual std::string description() const;

    bool respondsToSelector(Selector selector) const;
    /// Sends a message with at most one argument. Fatal when the object does not answer it, or the argument's class is wrong.
    /// A member without parameters ignores the argument.
    Value performSelector(Selector selector, Ref<NSObject> argument = nullptr);
    /// Sends a message with any arguments. Fatal as above, and when their count is wrong.
    Value invoke(Selector selector, std::initializer_list<Value> arguments);

    /// The value under `key`: "self", or what the selector of that name without arguments answers. An object class with keys
    /// of its own overrides it. Fatal for an unknown key.
    virtual Value valueForKey(std::string_view key);
    /// Sets the value under `key` through the selector "setKey:". Fatal for an unknown key and for a value of a wrong kind.
    virtual void setValueForKey(Value value, std::string_view key);
    /// What stands for this object where predicates compare it: an object that represents a record answers the record's
    /// identity, so that two objects for one record, and the identity itself, are equal there.
    virtual NSObject const& predicateIdentity() const { return *this; }

    /// This object as a kept reference of class T.
    template <class T> Ref<T> self() { return std::static_pointer_cast<T>(shared_from_this()); }

    bool hasAssociatedObjects() const noexcept { return hasAssociations_.load(std::memory_order_relaxed); }

protected:
    NSObject() = default;
    /// Called by `make`, once; an object that lives is not initialised again.
    virtual void init() {}

private:
    friend void setAssociatedObject(NSObject const&, void const*, Ref<NSObject>);
    mutable std::atomic<bool> hasAssociations_{false}; // spares the destruction of ordinary objects the look-up
};

/// Equality of any two values: `isEqual` for objects of the runtime, identity for other references, `==` else. A string
/// literal counts as text. Values of different types are never equal.
template <class A, class B> bool equal(A const& a, B const& b) {
    if constexpr (std::is_convertible_v<A, std::string_view> && std::is_convertible_v<B, std::string_view>) {
        return std::string_view{a} == std::string_view{b};
    } else if constexpr (std::is_convertible_v<A, Ref<NSObject const>> && std::is_convertible_v<B, Ref<NSObject const>>) {
        Ref<NSObject const> const first = a, second = b;
        return first == second || (first && second && first->isEqual(*second));
    } else if constexpr (std::is_same_v<A, B>) {
        return a == b;
    } else {
        return false;
    }
}

TESSARIN_API std::ostream& operator<<(std::ostream& out, NSObject const& object);

} // namespace Tessarin
