#include "Tessarin/platform/runtime/Selector.h"

#include <mutex>
#include <unordered_set>

namespace Tessarin {
namespace {

struct Names {
    std::mutex mutex;
    std::unordered_set<std::string> all; // guarded by mutex; nodes never move
};

Names& names() {
    static auto* const shared = new Names;
    return *shared;
}

} // namespace

Selector::Selector(std::string_view name) {
    auto& known = names();
    std::lock_guard const hold(known.mutex);
    name_ = &*known.all.emplace(name).first;
}

} // namespace Tessarin
