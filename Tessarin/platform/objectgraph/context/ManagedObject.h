#pragma once
#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"
#include "Tessarin/platform/objectgraph/context/PropertyKinds.h"

namespace Tessarin {

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

    template <query::PathLike P> auto get(P const& property) {
        static_assert(query::areRelated<typename P::PathRoot, Self>(), "get(…): this is a property of another class");
        return NSManagedObject::get(property);
    }

protected:
    ManagedObject() = default;
};

} // namespace Tessarin
