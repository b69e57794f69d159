// What the hooks of the import do unless a subclass overrides them.
#include "Tessarin/platform/foundation/time/NSDateFormatter.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"
#include "Tessarin/platform/runtime/Fatal.h"

namespace Tessarin {

std::optional<std::string> NSManagedObject::dictionaryKeyToAttributeName(std::string const& key) { return key; }

std::optional<NSDate> NSManagedObject::dictionaryStringToDate(std::string const& text) {
    // What a formatter would try first, without making one: nearly every date of an import ends here.
    if (auto date = NSDate::dateWithISO8601Text(text)) return date;
    if (auto date = NSDate::dateWithRFC822Text(text)) return date;
    auto const formatter = make<NSDateFormatter>();
    formatter->setDateFormat(NSDateFormatter::ISO8601Format);
    if (auto date = formatter->dateFromString(text)) return date;
    formatter->setDateFormat(NSDateFormatter::RFC822Format);
    return formatter->dateFromString(text);
}

Ref<NSManagedObject> NSManagedObject::findExistingRelationship(std::string const&, Dictionary const&) {
    print("************************************************************************ \n"
          "******* WARNING: findExistingRelationship(::) should be overridden and an actual implementation provided\n"
          "************************************************************************");
    return nullptr;
}

} // namespace Tessarin
