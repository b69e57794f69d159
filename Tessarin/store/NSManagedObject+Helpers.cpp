#include "Tessarin/store/NSManagedObject+Helpers.h"

#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/OneLinePrivate.h"

namespace Tessarin {

NSManagedObject& NSManagedObjectHelpers::home() noexcept { return static_cast<NSManagedObject&>(*this); }
NSManagedObject const& NSManagedObjectHelpers::home() const noexcept { return static_cast<NSManagedObject const&>(*this); }

Value NSManagedObjectHelpers::slot(std::string_view key) { return home().valueForKey(key); }
void NSManagedObjectHelpers::setSlot(std::string_view key, Value value) { home().setValueForKey(std::move(value), key); }

Ref<NSManagedObjectContext> NSManagedObjectHelpers::moc() const { return home().managedObjectContext(); }

Ref<NSManagedObject> NSManagedObjectHelpers::objectInContext(NSManagedObjectContext& context) const {
    return context.objectWithID(*home().objectID());
}

void NSManagedObjectHelpers::refreshInContext(bool mergeChanges) {
    if (auto const context = moc()) context->refreshObject(home(), mergeChanges);
}

void NSManagedObjectHelpers::deleteFromContext(bool save) {
    auto const context = moc();
    if (!context) return;
    context->deleteObject(home());
    if (save) context->saveAndWait({.wait = true, .toDisk = true});
}

bool NSManagedObjectHelpers::hasPropertyForKey(std::string_view key) const {
    return home().entity().propertyNamed(key) != nullptr;
}

Ref<NSManagedObjectHelpers::ThreadsafeToken> NSManagedObjectHelpers::threadsafeToken() const {
    return make<ThreadsafeToken>(home());
}

void NSManagedObjectHelpers::log() const { printLine(home().description()); }

std::string NSManagedObjectHelpers::entityName() { return lastPieceOfClassName(classOf<NSManagedObject>().name()); }

void NSManagedObjectHelpers::ThreadsafeToken::init() {
    fatal("use of unimplemented initializer 'init()' for class 'Tessarin.NSManagedObject.ThreadsafeToken'");
}

void NSManagedObjectHelpers::ThreadsafeToken::init(NSManagedObject const& object) {
    NSObject::init();
    objectID_ = object.objectID();
}

std::string lastPieceOfClassName(std::string_view name) { return std::string{name.substr(name.rfind('.') + 1)}; }

} // namespace Tessarin
