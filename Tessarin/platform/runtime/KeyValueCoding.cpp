// Values of objects by key, as far as selectors answer them.
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/NSObject.h"

namespace Tessarin {
namespace {

[[noreturn]] void unknownKey(NSObject const& object, std::string_view key) {
    fatal(object.objectClass().name() + " " + object.description() + " is not key value coding-compliant for the key \"" +
          std::string{key} + "\"");
}

std::string setterName(std::string_view key) {
    std::string name = "set" + std::string{key} + ":";
    if (name[3] >= 'a' && name[3] <= 'z') name[3] = static_cast<char>(name[3] - 'a' + 'A');
    return name;
}

} // namespace

Value NSObject::valueForKey(std::string_view key) {
    if (key == "self") return shared_from_this();
    auto const* entry = objectClass().find(Selector{key});
    if (!entry || entry->parameterCount() != 0) unknownKey(*this, key);
    return (*entry)(this, {});
}

void NSObject::setValueForKey(Value value, std::string_view key) {
    auto const* entry = objectClass().find(Selector{setterName(key)});
    if (!entry || entry->parameterCount() != 1) unknownKey(*this, key);
    (*entry)(this, {&value, 1});
}

} // namespace Tessarin
