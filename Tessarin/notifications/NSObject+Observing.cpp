#include "Tessarin/notifications/NSObject+Observing.h"

#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/runtime/AssociatedObjects.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/OneLinePrivate.h"
#include "Tessarin/platform/runtime/NSObject.h"

namespace Tessarin {
namespace {

/// A single-character text has no characters of its own whose place could tell it from others.
void const* keyOf(StaticText const& key) {
    if (key.isSingleCharacter()) fatal("a single-character static text is no key for an associated object");
    return &key;
}

} // namespace

void NSObjectObserving::addAsObserver(std::string_view name, Selector selector, Ref<NSObject> object) {
    auto& receiver = static_cast<NSObject&>(*this);
    if (receiver.respondsToSelector(selector))
        return NSNotificationCenter::defaultCenter()->addObserver(receiver.shared_from_this(), selector, name, object);
    // The parenthesis stays open: the line has always read like this, and is searched for in logs.
    printLine("Trying to register for a notification (" + std::string{name} + ", but " + receiver.objectClass().name() +
              " doesn't respond to " + selector.name());
}

void NSObjectObserving::removeAsObserver(std::optional<std::string_view> name) {
    auto const& receiver = static_cast<NSObject const&>(*this);
    if (name)
        NSNotificationCenter::defaultCenter()->removeObserver(receiver, name);
    else
        NSNotificationCenter::defaultCenter()->removeObserver(receiver);
}

void NSObjectObserving::associateObject(Ref<NSObject> object, StaticText const& key) {
    setAssociatedObject(static_cast<NSObject const&>(*this), keyOf(key), std::move(object));
}

Ref<NSObject> NSObjectObserving::associatedObjectForKey(StaticText const& key) const {
    return associatedObject(static_cast<NSObject const&>(*this), keyOf(key));
}

} // namespace Tessarin
