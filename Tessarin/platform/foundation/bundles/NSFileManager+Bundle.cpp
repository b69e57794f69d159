#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/foundation/files/NSFileManager.h"
#include "Tessarin/platform/foundation/files/NSSearchPath.h"

namespace Tessarin {

std::optional<NSURL> NSFileManager::containerURLForSecurityApplicationGroupIdentifier(std::string_view identifier) const {
    if (identifier.empty() || identifier.find('/') != identifier.npos || identifier.find("..") != identifier.npos) return {};
    if (identifier == NSBundle::mainBundle()->bundleIdentifier()) return {};
    auto const base = userDirectory(NSSearchPathDirectory::ApplicationSupport);
    if (!base) return {};
    auto container = base->URLByAppendingPathComponent("group-containers").URLByAppendingPathComponent(identifier);
    if (!directoryExistsAtURL(container)) return {};
    return container;
}

} // namespace Tessarin
