#include "Tessarin/platform/runtime/EndCounter.h"

#include "Tessarin/platform/runtime/AssociatedObjects.h"
#include "Tessarin/platform/runtime/NSObject.h"

namespace Tessarin {

EndCounter::EndCounter() : mark_(make<NSObject>()) {}

void EndCounter::follow(NSObject const& object, void const* key) {
    followed_.fetch_add(1, std::memory_order_relaxed);
    setAssociatedObject(object, key, mark_);
}

void EndCounter::unfollow(NSObject const& object, void const* key) {
    setAssociatedObject(object, key, nullptr);
    followed_.fetch_sub(1, std::memory_order_relaxed);
}

std::uint64_t EndCounter::count() const {
    return static_cast<std::uint64_t>(followed_.load(std::memory_order_relaxed) - (mark_.use_count() - 1));
}

} // namespace Tessarin
