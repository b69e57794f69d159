#include "Tessarin/defaults/NSUserDefaults+Keys.h"

#include "Tessarin/platform/foundation/preferences/NSUserDefaults.h"
#include "Tessarin/platform/runtime/Cell.h"

namespace Tessarin {
namespace {

Cell<Ref<NSUserDefaults>>& group() {
    static auto& cell = *new Cell<Ref<NSUserDefaults>>;
    return cell;
}

} // namespace

bool NSUserDefaultsKeys::hasValueForKey(std::string_view key) const {
    return !static_cast<NSUserDefaults const&>(*this).objectForKey(key).isAbsent();
}

void NSUserDefaultsKeys::removeValueForKey(std::string_view key) { static_cast<NSUserDefaults&>(*this).removeObjectForKey(key); }

void NSUserDefaultsKeys::setCurrentDefaultsGroup(std::string_view name) { group().set(NSUserDefaults::initWithSuiteName(name)); }

Ref<NSUserDefaults> NSUserDefaultsKeys::s_sharedUserDefaults() { return group().get(); }

Ref<NSUserDefaults> NSUserDefaultsKeys::defaults() {
    if (auto shared = group().get()) return shared;
    return NSUserDefaults::standardUserDefaults();
}

bool NSUserDefaultsKeys::Type::hasValueForKey(std::string_view key) const { return defaults()->hasValueForKey(key); }

void NSUserDefaultsKeys::Type::removeValueForKey(std::string_view key) const {
    defaults()->removeValueForKey(key);
    defaults()->synchronize();
}

} // namespace Tessarin
