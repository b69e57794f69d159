#pragma once
#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"
#include "Tessarin/platform/objectgraph/context/PropertyKinds.h"

namespace Tessarin {

namespace query {
template <class Self, class P> consteval bool isPropertyOf() {
    if constexpr (PathLike<P>) return areRelated<typename P::PathRoot, Self>();
    return true;
}
} // namespace query

/// A base for object classes, so that the compiler knows whose property each handle is: one of another class neither reads nor
/// writes its objects, nor stands in a query for it or behind a relationship to it. It adds nothing to the objects.
///
///     class Book : public ManagedObject<Book> {
///     public:
///         static inline Attribute<std::string> const title{"title"}; // Tessarin::Attribute<std::string, Book>
///         static inline ToOne<Author> const author{"author"};
///     };
///     class Novel : public ManagedObject<Novel, Book> { … };
template <class Self, class Base = NSManagedObject> class ManagedObject : public Base {
public:
    template <class T> using Attribute = Tessarin::Attribute<T, Self>;
    template <class T> using ToOne = Tessarin::ToOne<T, Self>;
    template <class T> using ToMany = Tessarin::ToMany<T, Self>;

    // As NSManagedObject has them, for properties of this class, of one above it or of unknown ones.
    template <class P> auto get(P const& property) {
        static_assert(query::isPropertyOf<Self, P>(), "get(…): this is a property of another class");
        return NSManagedObject::get(property);
    }
    template <class T, class O>
    void set(Tessarin::Attribute<T, O> const& attribute, std::type_identity_t<query::Settable<T>> value) {
        static_assert(query::areRelated<O, Self>(), "set(…): this is an attribute of another class");
        NSManagedObject::set(attribute, std::move(value));
    }
    template <class T, class O> void set(Tessarin::ToOne<T, O> const& relationship, std::nullptr_t) {
        static_assert(query::areRelated<O, Self>(), "set(…): this is a relationship of another class");
        NSManagedObject::set(relationship, nullptr);
    }
    template <class T, class O, class U> void set(Tessarin::ToOne<T, O> const& relationship, Ref<U> const& object) {
        constexpr bool isFit = query::areRelated<O, Self>() && query::isA<T, U>();
        static_assert(isFit, "set(…) takes a relationship of this class, and an object of the class that it leads to");
        if constexpr (isFit) NSManagedObject::set(relationship, object);
    }
    template <class T, class O, class U> void add(Tessarin::ToMany<T, O> const& relationship, Ref<U> const& object) {
        constexpr bool isFit = query::areRelated<O, Self>() && query::isA<T, U>();
        static_assert(isFit, "add(…) takes a relationship of this class, and an object of the class that it leads to");
        if constexpr (isFit) NSManagedObject::add(relationship, object);
    }
    template <class T, class O, class U> void remove(Tessarin::ToMany<T, O> const& relationship, Ref<U> const& object) {
        constexpr bool isFit = query::areRelated<O, Self>() && query::isA<T, U>();
        static_assert(isFit, "remove(…) takes a relationship of this class, and an object of the class that it leads to");
        if constexpr (isFit) NSManagedObject::remove(relationship, object);
    }

protected:
    ManagedObject() = default;
};

} // namespace Tessarin
