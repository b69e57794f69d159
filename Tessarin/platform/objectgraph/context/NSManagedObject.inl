#pragma once
// Typed access by property handles.
#include <atomic>
#include <typeinfo>

namespace Tessarin {

namespace detail {
template <class T> inline constexpr bool isOptional = false;
template <class T> inline constexpr bool isOptional<std::optional<T>> = true;
/// The object as a T, or null. A class is what it is: asked once, most objects pass by a comparison.
template <class T, class U> Ref<T> castToKnown(Ref<U> object) {
    static std::atomic<std::type_info const*> known{nullptr};
    if (!object) return nullptr;
    auto const& reference = *object;
    auto const& type = typeid(reference);
    if (known.load(std::memory_order_relaxed) != &type) {
        if (!dynamic_cast<T*>(object.get())) return nullptr;
        known.store(&type, std::memory_order_relaxed);
    }
    return std::static_pointer_cast<T>(std::move(object));
}
/// Appends those objects that are Ts. Neighbours are mostly of one class, which is asked once.
template <class T, class U> void appendCast(std::span<Ref<U>> objects, std::vector<Ref<T>>& result) {
    std::type_info const* known = nullptr;
    for (auto& object : objects) {
        auto const& reference = *object;
        if (!known || *known != typeid(reference)) {
            if (!dynamic_cast<T*>(object.get())) continue;
            known = &typeid(reference);
        }
        result.push_back(std::static_pointer_cast<T>(std::move(object)));
    }
}
template <class T, class U> std::vector<Ref<T>> castAll(std::vector<Ref<U>> objects) {
    if constexpr (std::is_same_v<T, U>) return objects;
    std::vector<Ref<T>> result;
    result.reserve(objects.size());
    appendCast<T, U>(objects, result);
    return result;
}
} // namespace detail

template <class T> T NSManagedObject::get(AttributeHandle<T> const& attribute) {
    auto const& property = attribute.in(entity());
    if constexpr (std::is_same_v<T, bool>) {
        return integerAt(property) != 0;
    } else if constexpr (std::is_integral_v<T>) {
        return static_cast<T>(integerAt(property));
    } else if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(realAt(property));
    } else if constexpr (std::is_same_v<T, std::string_view> || std::is_same_v<T, std::string>) {
        return T(textAt(property));
    } else if constexpr (std::is_same_v<T, NSDate>) {
        return NSDate::dateWithTimeIntervalSinceReferenceDate(realAt(property));
    } else if constexpr (detail::isOptional<T>) {
        return attributeValueAt(property).template as<typename T::value_type>();
    } else {
        constexpr bool hasZero = std::is_default_constructible_v<T>;
        static_assert(hasZero, "a type without a zero is read through an optional attribute: Attribute<std::optional<NSUUID>>");
        if constexpr (hasZero)
            return attributeValueAt(property).template as<T>().value_or(T{});
        else
            __builtin_unreachable();
    }
}

template <class T>
void NSManagedObject::set(AttributeHandle<T> const& attribute, std::type_identity_t<query::Settable<T>> value) {
    setAttribute(*attribute.in(entity()).asAttribute(), std::move(value).value());
}

template <class T> Ref<T> NSManagedObject::get(ToOneHandle<T> const& relationship) {
    auto object = destination(*relationship.in(entity()).asRelationship());
    if constexpr (std::is_same_v<T, NSManagedObject>)
        return object;
    else
        return detail::castToKnown<T>(std::move(object));
}
template <class T, class U> void NSManagedObject::set(ToOneHandle<T> const& relationship, Ref<U> const& object) {
    constexpr bool isFit = query::isA<T, U>();
    static_assert(isFit, "this relationship takes an object of its class, of one derived from it, or null");
    if constexpr (isFit) setDestination(*relationship.in(entity()).asRelationship(), object.get());
}
template <class T> void NSManagedObject::set(ToOneHandle<T> const& relationship, std::nullptr_t) {
    setDestination(*relationship.in(entity()).asRelationship(), nullptr);
}
template <class T, class Told> ScopedConnection NSManagedObject::observe(AttributeHandle<T> const& attribute, Told told) {
    using Kept = std::conditional_t<std::is_same_v<T, std::string_view>, std::string, T>;
    auto const read = [](Value const& value) -> Kept {
        if constexpr (detail::isOptional<Kept>)
            return value.template as<typename Kept::value_type>();
        else
            return value.template as<Kept>().value_or(Kept{});
    };
    return observe({std::string(attribute.name())}, [told = std::move(told), read](std::span<ValueChange const> changes) {
        told(read(changes.front().before), read(changes.front().now));
    });
}

template <class T> std::vector<Ref<T>> NSManagedObject::get(ToManyHandle<T> const& relationship) {
    return detail::castAll<T>(destinations(*relationship.in(entity()).asRelationship()));
}
template <class T, class U> void NSManagedObject::add(ToManyHandle<T> const& relationship, Ref<U> const& object) {
    constexpr bool isFit = query::isA<T, U>();
    static_assert(isFit, "this relationship takes objects of its class, and of those derived from it");
    if constexpr (isFit) addDestination(*relationship.in(entity()).asRelationship(), *object);
}
template <class T, class U> void NSManagedObject::remove(ToManyHandle<T> const& relationship, Ref<U> const& object) {
    constexpr bool isFit = query::isA<T, U>();
    static_assert(isFit, "this relationship has objects of its class, and of those derived from it");
    if constexpr (isFit) removeDestination(*relationship.in(entity()).asRelationship(), *object);
}

} // namespace Tessarin
