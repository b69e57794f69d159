#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"

#include "Tessarin/platform/objectgraph/persistence/rows/RowCachePrivate.h"
#include "Tessarin/platform/runtime/PagePoolPrivate.h"

namespace Tessarin {

static_assert(RowBlock::most == PagePool::pageSize && sizeof(RowBlock) == RowBlock::step);

RowBlock* RowBlock::make(std::size_t capacity, std::uint32_t references) {
    auto* block = ::new (capacity == most ? PagePool::take() : ::operator new(capacity)) RowBlock;
    block->references.store(references, std::memory_order_relaxed);
    block->capacity = static_cast<std::uint32_t>(capacity);
    block->used = block->begin();
    return block;
}

bool RowBlock::retainIfAlive() noexcept {
    auto count = references.load(std::memory_order_relaxed);
    while (count != 0)
        if (references.compare_exchange_weak(count, count + 1, std::memory_order_acquire, std::memory_order_relaxed)) return true;
    return false;
}

void RowBlock::destroy() noexcept {
    if (isCached.load(std::memory_order_relaxed)) first()->layout().space().cache().drop(*this);
    if (hasBasis) basis()->~RowRef();
    capacity == most ? PagePool::give(this) : ::operator delete(this);
}

} // namespace Tessarin
