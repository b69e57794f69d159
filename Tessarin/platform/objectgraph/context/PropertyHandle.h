#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/context/PropertyQuestions.h"
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include "Tessarin/platform/objectgraph/model/NSPropertyDescription.h"
#include <atomic>
#include <cstdint>
#include <string_view>

namespace Tessarin {

/// A property by name, looked up once: the typed way to an object's values, without a hash look-up for each access, and to
/// queries. Define one per property, as a static of the object class; any thread.
///
///     struct Book : ManagedObject<Book> {
///         static inline Attribute<std::string> const title{"title"};
///         static inline ToOne<Author> const author{"author"};
///     };
///     print(book->get(Book::title));
///     context->fetch<Book>().where(Book::author / Author::name == "Jane");
class TESSARIN_API PropertyHandle {
public:
    std::string_view name() const noexcept { return name_; }
    /// The property of that name in `entity`. Fatal when there is none.
    NSPropertyDescription const& in(NSEntityDescription const& entity) const {
        auto const known = last_.load(std::memory_order_relaxed);
        auto const* property = entity.propertyAt(known & NSPropertyDescription::positionInMark);
        return property && property->mark() == known ? *property : lookUp(entity);
    }

protected:
    explicit constexpr PropertyHandle(char const* name) noexcept : name_(name) {}

private:
    NSPropertyDescription const& lookUp(NSEntityDescription const& entity) const;

    std::string_view name_;
    mutable std::atomic<std::uint64_t> last_{0}; // the mark of the property that was found last, whose model may be gone
};

// What a function takes that works on properties of whatever class.
template <class T> class AttributeHandle : public PropertyHandle {
    using PropertyHandle::PropertyHandle;
};
template <class T> class ToOneHandle : public PropertyHandle {
    using PropertyHandle::PropertyHandle;
};
template <class T> class ToManyHandle : public PropertyHandle {
    using PropertyHandle::PropertyHandle;
};

/// An attribute read and written as a T: bool, an integer, float, double, std::string, std::string_view (valid until the
/// object changes), NSDate and every other type that a Value holds, or an optional of one. Without optional, an absent
/// value reads as T's zero, a date as 2001-01-01.
///
/// `Owner` is the class that has it, which the compiler then holds against the object or query it is used with. Classes derived
/// from `ManagedObject<Book>` need not write it; where it is void, the property is looked for when it is used.
template <class T, class Owner = void>
class Attribute : public AttributeHandle<T>, public query::PropertyQuestions<Attribute<T, Owner>, T, Owner> {
public:
    static constexpr auto pathMode = query::PathMode::One;
    explicit constexpr Attribute(char const* name) noexcept : AttributeHandle<T>(name) {}
    using PropertyHandle::in; // an entity
    using query::PropertyQuestions<Attribute, T, Owner>::in; // a list of values
};
template <class T, class Owner = void>
class ToOne : public ToOneHandle<T>, public query::PropertyQuestions<ToOne<T, Owner>, Ref<T>, Owner> {
public:
    static constexpr auto pathMode = query::PathMode::One;
    explicit constexpr ToOne(char const* name) noexcept : ToOneHandle<T>(name) {}
    using PropertyHandle::in; // an entity
    using query::PropertyQuestions<ToOne, Ref<T>, Owner>::in; // a list of values
};
template <class T, class Owner = void>
class ToMany : public ToManyHandle<T>, public query::PropertyQuestions<ToMany<T, Owner>, Ref<T>, Owner> {
public:
    static constexpr auto pathMode = query::PathMode::Members;
    explicit constexpr ToMany(char const* name) noexcept : ToManyHandle<T>(name) {}
    using PropertyHandle::in; // an entity
    using query::PropertyQuestions<ToMany, Ref<T>, Owner>::in; // a list of values
};

} // namespace Tessarin
