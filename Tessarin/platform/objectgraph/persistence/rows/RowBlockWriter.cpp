#include "Tessarin/platform/objectgraph/persistence/rows/RowBlockWriterPrivate.h"

#include <algorithm>
#include <bit>

namespace Tessarin {
namespace {

// Blocks grow, so that the rows of a small fetch keep little alive.
constexpr std::uint32_t firstCapacity = 256;
// An open block has more references than it can lose, so that one subtraction at its end counts all its rows.
constexpr std::uint32_t whileOpen = 1U << 30;

constexpr std::size_t rounded(std::size_t size) { return (size + RowBlock::step - 1) / RowBlock::step * RowBlock::step; }

} // namespace

RowBlockWriter::Room RowBlockWriter::room(std::size_t least) {
    if (!block_ || block_->used + least > block_->capacity) {
        close();
        auto const capacity = std::max<std::size_t>({nextCapacity_, firstCapacity, std::bit_ceil(2 * RowBlock::step + least)});
        block_ = RowBlock::make(capacity, whileOpen);
        nextCapacity_ = std::min(RowBlock::most, block_->capacity * 4);
    }
    return {reinterpret_cast<char*>(block_) + block_->used, block_->capacity - block_->used};
}

RowRef RowBlockWriter::commit(RowLayout const& layout, RecordKey key, std::uint32_t version, std::size_t size) {
    auto* const row = ::new (reinterpret_cast<char*>(block_) + block_->used) Row(layout, key, version, false);
    row->place_ = static_cast<std::uint16_t>(block_->used);
    if (last_) last_->next_ = static_cast<std::uint16_t>(block_->used / 8);
    last_ = row;
    block_->rowCount.store(static_cast<std::uint16_t>(block_->rowCount.load(std::memory_order_relaxed) + 1),
                           std::memory_order_relaxed);
    block_->used += static_cast<std::uint32_t>(rounded(size)); // the rounding may reach past the end; then the block is full
    ++given_;
    return RowRef::adopt(row);
}

void RowBlockWriter::close() noexcept {
    if (block_) std::exchange(block_, nullptr)->release(whileOpen - std::exchange(given_, 0));
    last_ = nullptr;
}

RowRef RowBlockWriter::alone(RowLayout const& layout, RecordKey key, std::uint32_t version, bool isWide, std::size_t size,
                             RowRef basis) {
    if (size > UINT32_MAX - sizeof(RowBlock)) throw std::bad_alloc(); // offsets within a row have 32 bits
    auto capacity = sizeof(RowBlock) + rounded(size) + (basis ? RowBlock::step : 0);
    if (capacity == RowBlock::most) capacity += RowBlock::step; // no whole page: its rows stand elsewhere
    auto* const block = RowBlock::make(capacity, 1);
    auto* const row = ::new (block->first()) Row(layout, key, version, isWide);
    row->place_ = static_cast<std::uint16_t>(block->begin());
    block->rowCount.store(1, std::memory_order_relaxed);
    block->hasBasis = bool(basis);
    if (basis) ::new (block->basis()) RowRef(std::move(basis));
    return RowRef::adopt(row);
}

} // namespace Tessarin
