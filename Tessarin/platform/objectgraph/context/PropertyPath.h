#pragma once
#include "Tessarin/platform/objectgraph/context/PropertyHandle.h"
#include "Tessarin/platform/objectgraph/context/PropertyKinds.h"
#include <string>

namespace Tessarin::query {

/// Properties one behind the other, from the objects of a query: `Book::author / Author::name` is "author.name".
template <class T, class Root, PathMode mode>
class PropertyPath : public PropertyQuestions<PropertyPath<T, Root, mode>, T, Root> {
public:
    static constexpr auto pathMode = mode;
    PropertyPath(std::string keyPath, std::size_t membersEnd) : keyPath_(std::move(keyPath)), membersEnd_(membersEnd) {}

    std::string const& keyPath() const noexcept { return keyPath_; }
    /// Where the last to-many relationship in it ends.
    std::size_t membersEnd() const noexcept { return membersEnd_; }

private:
    std::string keyPath_;
    std::size_t membersEnd_;
};

template <PathLike P> std::string keyPathOf(P const& path) {
    if constexpr (requires { path.keyPath(); })
        return path.keyPath();
    else
        return std::string(path.name());
}
template <PathLike P> std::size_t membersEndOf(P const& path) {
    if constexpr (requires { path.membersEnd(); })
        return path.membersEnd();
    else
        return P::pathMode == PathMode::Members ? path.name().size() : 0;
}

template <PathLike P> inline constexpr bool isRelationship = kindOf<typename P::PathContent> == Kind::Object;
/// Whether `Next` is a property of the objects that `Path` leads to, as far as that is known.
template <PathLike Path, PathLike Next>
inline constexpr bool leadsTo = areRelated<typename Pointee<typename Path::PathContent>::Type, typename Next::PathRoot>();

template <PathLike Path, PathLike Next> auto operator/(Path const& path, Next const& next) {
    constexpr bool isFromRelationship = isRelationship<Path>;
    constexpr bool isOfItsClass = !isFromRelationship || leadsTo<Path, Next>;
    constexpr bool isPlain = Next::pathMode == PathMode::One || Next::pathMode == PathMode::Members;
    static_assert(isFromRelationship, "a path leads on from a relationship: an attribute has no properties");
    static_assert(isOfItsClass, "the property behind / belongs to another class than the relationship leads to");
    static_assert(isPlain, "any(…), all(…) and none(…) stand around the beginning of a path, or around all of it");
    constexpr auto mode = Path::pathMode == PathMode::One ? Next::pathMode : Path::pathMode;
    auto text = keyPathOf(path);
    auto const inNext = membersEndOf(next);
    auto const membersEnd = inNext != 0 ? text.size() + 1 + inNext : membersEndOf(path);
    text += '.';
    text += keyPathOf(next);
    return PropertyPath<typename Next::PathContent, typename Path::PathRoot, mode>(std::move(text), membersEnd);
}

template <PathMode mode, PathLike P> auto withMode(P const& path) {
    return PropertyPath<typename P::PathContent, typename P::PathRoot, mode>(keyPathOf(path), membersEndOf(path));
}

// `any(Author::books) / Book::year > 1815` or `any(Author::books / Book::year) > 1815` is `ANY books.year > 1815`.
template <PathLike P> auto any(P const& path) {
    static_assert(P::pathMode == PathMode::Members, "any(…) is said of a path through a to-many relationship");
    return withMode<PathMode::Any>(path);
}
template <PathLike P> auto all(P const& path) {
    static_assert(P::pathMode == PathMode::Members, "all(…) is said of a path through a to-many relationship");
    return withMode<PathMode::All>(path);
}
template <PathLike P> auto none(P const& path) {
    static_assert(P::pathMode == PathMode::Members, "none(…) is said of a path through a to-many relationship");
    return withMode<PathMode::None>(path);
}

template <class T, PathLike P> auto aggregated(P const& path, std::string_view name) {
    auto text = keyPathOf(path);
    text.insert(membersEndOf(path), name);
    return PropertyPath<T, typename P::PathRoot, PathMode::One>(std::move(text), 0);
}
template <PathLike P, Kind... kinds>
inline constexpr bool isAggregable = P::pathMode == PathMode::Members && ((kindOf<typename P::PathContent> == kinds) || ...);

/// `count(Author::books) > 3` is `books.@count > 3`.
template <PathLike P> auto count(P const& path) {
    constexpr bool isToMany = isAggregable<P, Kind::Object>;
    static_assert(isToMany, "count(…) counts the members of a to-many relationship");
    return aggregated<std::int64_t>(path, ".@count");
}
// `sum(Author::books / Book::price)` is `books.@sum.price`.
template <PathLike P> auto sum(P const& path) {
    constexpr bool isOfNumbers = isAggregable<P, Kind::Number>;
    static_assert(isOfNumbers, "sum(…) adds a number attribute of the members of a to-many relationship");
    return aggregated<double>(path, ".@sum");
}
template <PathLike P> auto average(P const& path) {
    constexpr bool isOfNumbers = isAggregable<P, Kind::Number>;
    static_assert(isOfNumbers, "average(…) is of a number attribute of the members of a to-many relationship");
    return aggregated<double>(path, ".@avg");
}
template <PathLike P> auto minimum(P const& path) {
    constexpr bool isOrdered = isAggregable<P, Kind::Number, Kind::Date, Kind::Text>;
    static_assert(isOrdered, "minimum(…) is of an attribute of the members of a to-many relationship");
    return aggregated<typename P::PathContent>(path, ".@min");
}
template <PathLike P> auto maximum(P const& path) {
    constexpr bool isOrdered = isAggregable<P, Kind::Number, Kind::Date, Kind::Text>;
    static_assert(isOrdered, "maximum(…) is of an attribute of the members of a to-many relationship");
    return aggregated<typename P::PathContent>(path, ".@max");
}

} // namespace Tessarin::query
