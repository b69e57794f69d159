#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include "Tessarin/platform/objectgraph/model/NSPropertyDescription.h"
#include <atomic>
#include <string_view>

namespace Tessarin {

/// A property by name, looked up once: the typed way to an object's values, without a hash look-up for each access.
/// Define one per property, as a static of the object class; any thread.
///
///     struct Book : NSManagedObject {
///         static inline Attribute<std::string> const title{"title"};
///         static inline ToOne<Author> const author{"author"};
///     };
///     print(book->get(Book::title));
class TESSARIN_API PropertyHandle {
public:
    std::string_view name() const noexcept { return name_; }
    /// The property of that name in `entity`. Fatal when there is none.
    NSPropertyDescription const& in(NSEntityDescription const& entity) const {
        auto const* known = last_.load(std::memory_order_acquire);
        if (known && entity.propertyAt(known->index()) == known) return *known;
        return lookUp(entity);
    }

protected:
    explicit constexpr PropertyHandle(char const* name) noexcept : name_(name) {}

private:
    NSPropertyDescription const& lookUp(NSEntityDescription const& entity) const;

    std::string_view name_;
    mutable std::atomic<NSPropertyDescription const*> last_{nullptr}; // the property that was found last: a hint
};

/// An attribute read and written as a T: bool, an integer, float, double, std::string, std::string_view (valid until the
/// object changes), NSDate and every other type that a Value holds, or an optional of one. Without optional, an absent
/// value reads as T's zero.
template <class T> class Attribute : public PropertyHandle {
public:
    explicit constexpr Attribute(char const* name) noexcept : PropertyHandle(name) {}
};
template <class T> class ToOne : public PropertyHandle {
public:
    explicit constexpr ToOne(char const* name) noexcept : PropertyHandle(name) {}
};
template <class T> class ToMany : public PropertyHandle {
public:
    explicit constexpr ToMany(char const* name) noexcept : PropertyHandle(name) {}
};

} // namespace Tessarin
