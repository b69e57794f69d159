#include "Tessarin/platform/objectgraph/persistence/KeyPromotions.h"

#include "Tessarin/platform/objectgraph/persistence/NSPersistentStore.h"

namespace Tessarin {

RecordKey KeyPromotions::permanentKey(RecordKey temporary, NSPersistentStore& store, Ref<NSError>& error) {
    std::lock_guard const hold(mutex_);
    auto& known = permanent_[temporary];
    if (known == 0) {
        known = store.reserveKeys(1, error);
        if (error) return 0;
        log_.emplace_back(temporary, known);
        count_.store(log_.size(), std::memory_order_release);
    }
    return known;
}

KeyPromotions::Log KeyPromotions::since(std::size_t seen) const {
    std::lock_guard const hold(mutex_);
    return {log_.begin() + static_cast<std::ptrdiff_t>(seen), log_.end()};
}

} // namespace Tessarin
