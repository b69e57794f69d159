#include "Tessarin/platform/runtime/NSObject.h"

#include "Tessarin/platform/runtime/AssociatedObjects.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <ostream>
#include <sstream>

namespace Tessarin {

NSObject::~NSObject() {
    if (hasAssociations_.load(std::memory_order_relaxed)) removeAssociatedObjects(*this);
}

Class const& NSObject::objectClass() const { return classOf<NSObject>(); }

std::string NSObject::description() const {
    std::ostringstream text;
    text << '<' << objectClass().name() << ": " << static_cast<void const*>(this) << '>';
    return text.str();
}

bool NSObject::respondsToSelector(Selector selector) const { return objectClass().find(selector) != nullptr; }

Value NSObject::performSelector(Selector selector, Ref<NSObject> argument) {
    auto const* entry = objectClass().find(selector);
    if (!entry) fatal(objectClass().name() + " does not answer " + selector.name());
    if (entry->parameterCount() == 0) return (*entry)(this, {});
    Value const value{std::move(argument)};
    return (*entry)(this, {&value, 1});
}

Value NSObject::invoke(Selector selector, std::initializer_list<Value> arguments) {
    auto const* entry = objectClass().find(selector);
    if (!entry) fatal(objectClass().name() + " does not answer " + selector.name());
    return (*entry)(this, {arguments.begin(), arguments.size()});
}

std::ostream& operator<<(std::ostream& out, NSObject const& object) { return out << object.description(); }

} // namespace Tessarin
