#pragma once
// The steps and ends of typed queries.
#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"

namespace Tessarin {

namespace query {
template <class K> concept IsSortKey = requires { typename K::SortRoot; };
template <class K> Ref<NSSortDescriptor> descriptorOf(K const& key) {
    if constexpr (IsSortKey<K>)
        return key.descriptor();
    else if constexpr (PathLike<K>)
        return key.ascending().descriptor();
    else
        return key;
}
template <class T, class K> consteval bool sorts() {
    if constexpr (IsSortKey<K>)
        return areRelated<typename K::SortRoot, T>();
    else if constexpr (PathLike<K>)
        return areRelated<typename K::PathRoot, T>();
    else
        return std::is_convertible_v<K const&, Ref<NSSortDescriptor>>;
}
template <class T, class P> consteval bool leadsFrom() {
    if constexpr (PathLike<P>) return isRelationship<P> && areRelated<typename P::PathRoot, T>();
    return false;
}
} // namespace query

template <class T> template <class C> FetchQuery<T> FetchQuery<T>::where(C const& condition) const& {
    return FetchQuery(*this).where(condition);
}
template <class T> template <class C> FetchQuery<T> FetchQuery<T>::where(C const& condition) && {
    if constexpr (query::ConditionLike<C>) {
        constexpr bool isOfClass = query::areRelated<typename query::RootOfCondition<C>::Type, T>();
        static_assert(isOfClass, "this condition asks for a property of another class than the query is for");
        add(query::partsOf(condition));
    } else {
        constexpr bool isCondition = std::is_convertible_v<C const&, Ref<NSPredicate>>;
        static_assert(isCondition, "where(…) takes a condition such as Book::year > 1800, or a predicate");
        if constexpr (isCondition)
            if (Ref<NSPredicate> predicate = condition) add(query::ConditionParts(std::move(predicate)));
    }
    return std::move(*this);
}

template <class T> template <class... Keys> FetchQuery<T> FetchQuery<T>::sortedBy(Keys const&... keys) const& {
    return FetchQuery(*this).sortedBy(keys...);
}
template <class T> template <class... Keys> FetchQuery<T> FetchQuery<T>::sortedBy(Keys const&... keys) && {
    constexpr bool areOrders = (query::sorts<T, Keys>() && ...);
    static_assert(areOrders, "sortedBy(…) takes attributes of the query's class, such as Book::title or Book::year.descending()");
    if constexpr (areOrders) sortDescriptors_ = {query::descriptorOf(keys)...};
    return std::move(*this);
}

template <class T> template <class... Paths> FetchQuery<T> FetchQuery<T>::prefetching(Paths const&... paths) const& {
    return FetchQuery(*this).prefetching(paths...);
}
template <class T> template <class... Paths> FetchQuery<T> FetchQuery<T>::prefetching(Paths const&... paths) && {
    constexpr bool areRelationships = (query::leadsFrom<T, Paths>() && ...);
    static_assert(areRelationships, "prefetching(…) takes relationships of the query's class, and paths of them");
    if constexpr (areRelationships) (prefetched_.push_back(query::keyPathOf(paths)), ...);
    return std::move(*this);
}

template <class T> std::vector<Ref<T>> FetchQuery<T>::found(Ref<NSError>* error) const {
    std::vector<Ref<T>> objects;
    auto const append = [&](std::span<Ref<NSManagedObject>> run, std::size_t total) {
        objects.reserve(total);
        detail::appendCast<T>(run, objects);
    };
    if (!take(append, error)) objects.clear();
    return objects;
}
template <class T>
Ref<NSAsynchronousFetch>
FetchQuery<T>::async(Closure<void(FetchedList<T> list, Ref<NSError> const& error)> completion) const {
    return fetchedAsync([completion = std::move(completion)](FetchedObjects found, Ref<NSError> const& error) {
        completion(FetchedList<T>(std::move(found)), error);
    });
}
template <class T> Ref<T> FetchQuery<T>::first() const {
    auto const objects = limit(1).objects();
    return objects.empty() ? nullptr : objects.front();
}

} // namespace Tessarin
