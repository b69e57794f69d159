// What the hooks of the import do unless a subclass overrides them.
#include "Tessarin/platform/foundation/NSDate+Parsing.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"
#include "Tessarin/platform/runtime/Fatal.h"

namespace Tessarin {

std::optional<std::string> NSManagedObject::dictionaryKeyToAttributeName(std::string const& key) { return key; }

std::optional<NSDate> NSManagedObject::dictionaryStringToDate(std::string const& text) {
    if (auto date = NSDate::dateWithISO8601Text(text)) return date;
    return NSDate::dateWithRFC822Text(text);
}

Ref<NSManagedObject> NSManagedObject::findExistingRelationship(std::string const&, Dictionary const&) {
    print("************************************************************************ \n"
          "******* WARNING: findExistingRelationship(::) should be overridden and an actual implementation provided\n"
          "************************************************************************");
    return nullptr;
}

} // namespace Tessarin
