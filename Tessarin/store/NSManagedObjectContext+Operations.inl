#pragma once
// The typed forms of the context operations; included where objects and contexts are complete.
#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/store/FetchAwaitable.h"

namespace Tessarin {

template <class T> Ref<T> NSManagedObjectContextOperations::insertObject() {
    return detail::castToKnown<T>(insertObjectNamed(entityName<T>()));
}
template <class T> std::vector<Ref<T>> NSManagedObjectContextOperations::allObjects(FetchOptions options) {
    std::vector<Ref<T>> objects;
    bool const isWhole =
        takeObjects(entityName<T>(), std::move(options), [&](std::span<Ref<NSManagedObject>> run, std::size_t total) {
            objects.reserve(total);
            detail::appendCast<T>(run, objects);
        });
    if (!isWhole) objects.clear();
    return objects;
}
template <class T> Ref<T> NSManagedObjectContextOperations::anyObject(AnyObjectOptions options) {
    return std::dynamic_pointer_cast<T>(anyObjectNamed(entityName<T>(), std::move(options)));
}
template <class T>
Ref<T> NSManagedObjectContextOperations::reconstitute(Ref<NSManagedObjectHelpers::ThreadsafeToken> const& token) {
    return token ? std::dynamic_pointer_cast<T>(objectOf(*token)) : nullptr;
}
template <class T>
    requires(!std::is_same_v<T, NSManagedObjectHelpers::ThreadsafeToken>)
Ref<T> NSManagedObjectContextOperations::reconstitute(Ref<T> const& object) {
    return object ? std::dynamic_pointer_cast<T>(objectLike(*object)) : nullptr;
}
template <class T>
std::vector<Ref<T>>
NSManagedObjectContextOperations::reconstitute(std::vector<Ref<NSManagedObjectHelpers::ThreadsafeToken>> const& tokens) {
    std::vector<Ref<T>> result;
    for (auto const& token : tokens)
        if (auto object = reconstitute<T>(token)) result.push_back(std::move(object));
    return result;
}

} // namespace Tessarin
