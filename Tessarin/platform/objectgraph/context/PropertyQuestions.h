#pragma once
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/foundation/predicates/TextFolding.h"
#include <initializer_list>
#include <type_traits>

namespace Tessarin {

inline constexpr TextOptions caseInsensitive = TextOptions::CaseInsensitive;
inline constexpr TextOptions diacriticInsensitive = TextOptions::DiacriticInsensitive;

template <class Root> class TypedPredicate;
template <class Root> class SortKey;

/// What typed queries are written with. Everything here is found through its arguments: `any(Book::tags)` needs no `using`,
/// unless a class around it has a member of that name: `Tessarin::query::any(Book::tags)`.
namespace query {

/// Whether a path leads to one value, or to the members of a to-many relationship, and which of them a comparison speaks of.
enum class PathMode : unsigned char { One, Members, Any, All, None };

/// What can be asked of a property, or of the property at the end of a path, for a predicate or an order. Each makes the same
/// objects as the format text beside it; values are taken at once. A pattern that is malformed is fatal, as in a format: parse
/// what a user wrote with `NSPredicate::parse`.
template <class Self, class T, class Root> class PropertyQuestions {
public:
    using PathContent = T; // an attribute's type; Ref<Author> for a relationship
    using PathRoot = Root; // the class whose property is the first of the path; void when it is not known

    // `title CONTAINS[c] "mm"` and so on: of text attributes. A to-many relationship contains an object: `tags CONTAINS %@`.
    template <class V> TypedPredicate<Root> contains(V const& value, TextOptions options = TextOptions::None) const;
    template <class V> TypedPredicate<Root> beginsWith(V const& text, TextOptions options = TextOptions::None) const;
    template <class V> TypedPredicate<Root> endsWith(V const& text, TextOptions options = TextOptions::None) const;
    template <class V> TypedPredicate<Root> like(V const& pattern, TextOptions options = TextOptions::None) const;
    template <class V> TypedPredicate<Root> matches(V const& pattern, TextOptions options = TextOptions::None) const;
    /// `text FINDS "jane pri"`: has all those words, the last as a beginning. Any text will do, such as one that a user types.
    template <class V> TypedPredicate<Root> finds(V const& words) const;
    /// `title ==[c] "emma"`; without options write `==`.
    template <class V> TypedPredicate<Root> equals(V const& text, TextOptions options) const;
    /// `year BETWEEN {1800, 1899}`, both inclusive.
    template <class Low, class High> TypedPredicate<Root> between(Low const& low, High const& high) const;
    /// `year IN {1813, 1815}`; any range of what the property is compared with.
    template <class Values> TypedPredicate<Root> in(Values const& values) const;
    template <class V> TypedPredicate<Root> in(std::initializer_list<V> values) const;
    /// `title == nil`, which `== nullptr` says, too.
    TypedPredicate<Root> isNil() const;
    TypedPredicate<Root> isNotNil() const;

    SortKey<Root> ascending() const;
    SortKey<Root> descending() const;
    /// As the user's language sorts; `.localized().descending()` turns it around.
    SortKey<Root> localized() const;
    SortKey<Root> ordered(SortOptions options) const;

private:
    Self const& path() const noexcept { return static_cast<Self const&>(*this); }
};

/// A property handle, or a path of them.
template <class P>
concept PathLike = requires {
    typename P::PathContent;
    typename P::PathRoot;
    P::pathMode;
};

} // namespace query
} // namespace Tessarin
