#include "Tessarin/platform/objectgraph/persistence/stores/StoreRefusal.h"

#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <sys/stat.h>

namespace Tessarin {

Ref<StoreRefusal> StoreRefusal::of(NSError const& error) {
    return error.userInfo()[StoreRefusalErrorKey].objectAs<StoreRefusal>();
}

std::optional<StoreRefusal::Identity> StoreRefusal::identityAt(std::string const& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return {};
    return Identity{status.st_dev, status.st_ino};
}

void StoreRefusal::init(std::string place, std::optional<Identity> identity, bool isOfEmptyStore,
                        std::optional<MigrationPlan> plan, std::optional<NSURL> copy) {
    NSObject::init();
    place_ = std::move(place);
    identity_ = identity;
    isOfEmptyStore_ = isOfEmptyStore;
    plan_ = std::move(plan);
    copy_ = std::move(copy);
}

std::string StoreRefusal::description() const { return place_ + (copy_ ? ", kept in " + copy_->path() : ", nothing kept"); }

} // namespace Tessarin
