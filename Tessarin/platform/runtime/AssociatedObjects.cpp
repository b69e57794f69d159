#include "Tessarin/platform/runtime/AssociatedObjects.h"

#include "Tessarin/platform/runtime/NSObject.h"

#include <map>
#include <mutex>
#include <unordered_map>

namespace Tessarin {
namespace {

using Attached = std::map<void const*, Ref<NSObject>>;

struct Associations {
    std::mutex mutex;
    std::unordered_map<NSObject const*, Attached> byOwner; // guarded by mutex
};

Associations& associations() {
    static auto* const shared = new Associations;
    return *shared;
}

} // namespace

void setAssociatedObject(NSObject const& owner, void const* key, Ref<NSObject> object) {
    auto& all = associations();
    Ref<NSObject> replaced; // released after the lock: its destructor may come back here
    std::lock_guard const hold(all.mutex);
    owner.hasAssociations_.store(true, std::memory_order_relaxed);
    if (object) {
        replaced = std::exchange(all.byOwner[&owner][key], std::move(object));
    } else if (auto const found = all.byOwner.find(&owner); found != all.byOwner.end()) {
        if (auto const entry = found->second.find(key); entry != found->second.end()) {
            replaced = std::move(entry->second);
            found->second.erase(entry);
        }
        if (found->second.empty()) all.byOwner.erase(found);
    }
}

Ref<NSObject> associatedObject(NSObject const& owner, void const* key) {
    auto& all = associations();
    std::lock_guard const hold(all.mutex);
    auto const found = all.byOwner.find(&owner);
    if (found == all.byOwner.end()) return nullptr;
    auto const entry = found->second.find(key);
    return entry == found->second.end() ? nullptr : entry->second;
}

void removeAssociatedObjects(NSObject const& owner) noexcept {
    auto& all = associations();
    Attached released;
    std::lock_guard const hold(all.mutex);
    auto const found = all.byOwner.find(&owner);
    if (found == all.byOwner.end()) return;
    released.swap(found->second);
    all.byOwner.erase(found);
}

} // namespace Tessarin
