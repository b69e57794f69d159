#include "CatalogueStore.h"

#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/foundation/files/NSFileManager.h"
#include <cstdlib>

using namespace Tessarin;

namespace Catalogue {
namespace {

constexpr auto group = "org.tessarin.catalogue";
constexpr auto name = "catalogue";

} // namespace

Ref<CatalogueStore> CatalogueStore::open(std::string const& folder) {
    // A store lives in the user's documents, or in the folder that a group of applications shares. The group's folder is
    // looked for below XDG_DATA_HOME, so that is what the program points to the folder it was given.
    auto const base = NSURL::fileURLWithPath(folder);
    auto const container = base.URLByAppendingPathComponent("group-containers").URLByAppendingPathComponent(group);
    NSFileManager::defaultManager()->createDirectoryAtURL(container);
    setenv("XDG_DATA_HOME", base.path().c_str(), 1);
    setAppGroupIdentifier(group, name);
    return make<CatalogueStore>(StoreOptions{.modelURL = NSBundle::mainBundle()->URLForResource("Catalogue", "xcdatamodel")});
}

std::uint64_t CatalogueStore::bytes() const {
    std::uint64_t bytes = 0;
    for (auto const& file : NSFileManager::defaultManager()->contentsOfDirectoryAtURL(storeURL()))
        bytes += static_cast<std::uint64_t>(NSFileManager::defaultManager()->attributesOfItemAtURL(file)["NSFileSize"].integer());
    return bytes;
}

} // namespace Catalogue
