#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowLayout.h"
#include "Tessarin/platform/objectgraph/persistence/stores/RecordKey.h"
#include "Tessarin/platform/runtime/Value.h"
#include <atomic>
#include <bit>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>

namespace Tessarin {

class RowBlockWriter;
class RowCache;
class RowRef;
struct RowBlock;

/// The values of one record at one version: immutable, packed (header, cells in their widths, a bit per cell that is present,
/// texts and bytes). Shared between contexts, change sets and the store; any thread. A row does not keep its layout alive:
/// whoever keeps rows keeps their RowSpace.
class TESSARIN_API Row {
public:
    RowLayout const& layout() const noexcept { return *layout_; }
    NSEntityDescription const& entity() const noexcept { return layout_->entity(); }
    RecordKey key() const noexcept { return key_; }
    /// `firstVersion` for a record that was just made, one more for each saved change.
    std::uint32_t version() const noexcept { return version_; }
    /// SQLite keeps 0 and 1 in no byte of their own. Records that begin with 2 stay as long as they are through their first 125
    /// changes, where a byte more would have the full pages of a table split ("store", W7, W7b).
    static constexpr std::uint32_t firstVersion = 2;
    /// A store that says more is damaged; whoever starts there may still save it a billion times.
    static constexpr std::uint32_t mostVersion = 1U << 30;

    bool isPresent(std::size_t cell) const noexcept {
        return (static_cast<unsigned char>(at(packing().presence + static_cast<std::uint32_t>(cell / 8))[0]) >> (cell % 8)) & 1;
    }
    // An absent cell reads as 0 or empty.
    std::int64_t integer(std::size_t cell) const noexcept { return integer(packing().places[cell]); }
    double real(std::size_t cell) const noexcept { return real(packing().places[cell]); }
    RecordKey reference(std::size_t cell) const noexcept { return load<RecordKey>(packing().places[cell].offset); }
    std::string_view text(std::size_t cell) const noexcept { return text(packing().places[cell]); }
    // The same by place, for who asks by property without a detour over its cell.
    using Place = RowLayout::Packing::Place;
    Place const& placeOfProperty(std::size_t index) const noexcept { return packing().byProperty[index]; }
    std::int64_t integer(Place const& place) const noexcept {
        switch (place.width) {
        case 1: return load<std::int8_t>(place.offset);
        case 2: return load<std::int16_t>(place.offset);
        case 4: return load<std::int32_t>(place.offset);
        default: return load<std::int64_t>(place.offset);
        }
    }
    double real(Place const& place) const noexcept { return load<double>(place.offset); }
    std::string_view text(Place const& place) const noexcept {
        auto const begin = place.textBefore ? load<std::uint32_t>(place.textBefore) : packing().heap;
        return {at(begin), load<std::uint32_t>(place.offset) - begin};
    }
    std::span<std::byte const> bytes(std::size_t cell) const noexcept;
    /// The cell as the value that an application sees; absent for a reference, which only a context can resolve.
    Value value(std::size_t cell) const;
    bool cellEquals(std::size_t cell, Row const& other) const noexcept;

    /// Of a row that shows what a context has not saved: the row beneath, which levels further up may show in the same way. Its
    /// version is one that others may give to something else. Null for a row that was saved, or is on its way.
    inline RowRef const* basis() const noexcept;
    /// The version of `savedRowOf` it.
    inline std::uint32_t savedVersion() const noexcept;

private:
    friend class RowBlockWriter;
    friend class RowCache;
    friend class RowRef;
    friend struct RowBlock;

    Row(RowLayout const& layout, RecordKey key, std::uint32_t version, bool isWide) noexcept
        : version_(version & 0x7FFF'FFFF), isWide_(isWide), layout_(&layout), key_(key) {}
    RowLayout::Packing const& packing() const noexcept { return layout_->packing(isWide_); }
    char const* at(std::uint32_t offset) const noexcept { return reinterpret_cast<char const*>(this) + offset; }
    template <class T> T load(std::uint32_t offset) const noexcept {
        T value;
        std::memcpy(&value, at(offset), sizeof value);
        return value;
    }
    inline RowBlock& block() const noexcept;

    std::uint16_t place_ = 0; // from the start of the block
    std::uint16_t next_ = 0;  // the next row of the block, in steps of 8 bytes; 0: this is the last
    std::uint32_t version_ : 31;
    std::uint32_t isWide_ : 1;
    RowLayout const* layout_;
    RecordKey key_;
};

/// Rows that were made one after another, in one allocation with one count: a fetch of many rows costs an allocation for
/// every few dozen, and a row that is kept keeps its neighbours (at most `most` bytes of them).
struct TESSARIN_API RowBlock {
    static constexpr std::uint32_t most = 4096;

    std::atomic<std::uint32_t> references; // to any of its rows
    std::atomic<bool> isCached{false};     // the cache knows some of its rows
    bool hasBasis = false;                 // its only row has one, which stands at the end
    std::atomic<std::uint16_t> rowCount{0}; // how many stand in it; while more are added, others may have some already
    std::uint32_t used = 0;
    std::uint32_t capacity;

    // Rows of a block that fills a page stand 8 bytes behind a multiple of 16, all others on one: so a row shows how its block
    // is found, without being read. Releasing 100,000 rows touches a quarter of the memory ("store", W3).
    static constexpr std::uint32_t step = 16;
    std::uint32_t begin() const noexcept { return sizeof(RowBlock) + (capacity == most ? step / 2 : 0); }
    Row* first() noexcept { return reinterpret_cast<Row*>(reinterpret_cast<char*>(this) + begin()); }
    Row* after(Row& row) noexcept {
        return row.next_ ? reinterpret_cast<Row*>(reinterpret_cast<char*>(this) + row.next_ * std::uint32_t{8}) : nullptr;
    }
    RowRef* basis() noexcept { return reinterpret_cast<RowRef*>(reinterpret_cast<char*>(this) + capacity - step); }
    static RowBlock* make(std::size_t capacity, std::uint32_t references);
    void retain(std::uint32_t count = 1) noexcept { references.fetch_add(count, std::memory_order_relaxed); }
    void release(std::uint32_t count = 1) noexcept {
        if (references.fetch_sub(count, std::memory_order_acq_rel) == count) destroy();
    }
    /// One more reference, unless the last has just gone and the block waits for the cache's lock to leave.
    bool retainIfAlive() noexcept;

private:
    void destroy() noexcept;
};

RowBlock& Row::block() const noexcept {
    auto const address = reinterpret_cast<std::uintptr_t>(this);
    bool const fillsPage = address % RowBlock::step != 0;
    return *reinterpret_cast<RowBlock*>(fillsPage ? address & ~std::uintptr_t{RowBlock::most - 1} : address - place_);
}

/// A kept row, or none.
class TESSARIN_API RowRef {
public:
    RowRef() noexcept = default;
    RowRef(std::nullptr_t) noexcept {}
    RowRef(RowRef const& other) noexcept : row_(other.row_) {
        if (row_) row_->block().retain();
    }
    RowRef(RowRef&& other) noexcept : row_(std::exchange(other.row_, nullptr)) {}
    RowRef& operator=(RowRef other) noexcept {
        std::swap(row_, other.row_);
        return *this;
    }
    ~RowRef() {
        if (row_) row_->block().release();
    }

    /// Takes over a count that the caller already holds.
    static RowRef adopt(Row* row) noexcept {
        RowRef ref;
        ref.row_ = row;
        return ref;
    }

    Row const* get() const noexcept { return row_; }
    /// The block that a row stands in; there must be one.
    RowBlock& block() const noexcept { return row_->block(); }
    Row const& operator*() const noexcept { return *row_; }
    Row const* operator->() const noexcept { return row_; }
    explicit operator bool() const noexcept { return row_ != nullptr; }
    friend bool operator==(RowRef const&, RowRef const&) noexcept = default;

private:
    Row* row_ = nullptr;
};

RowRef const* Row::basis() const noexcept { return block().hasBasis ? block().basis() : nullptr; }
/// The row itself, or what was saved at the bottom of what is shown.
inline RowRef const& savedRowOf(RowRef const& row) noexcept {
    auto const* bottom = &row;
    while (auto const* basis = (*bottom)->basis()) bottom = basis;
    return *bottom;
}
std::uint32_t Row::savedVersion() const noexcept {
    auto const* bottom = basis();
    return bottom ? savedRowOf(*bottom)->version() : version();
}

/// Keys are unique in a store. In a damaged one two records may share one, or a link may lead to a record of another entity:
/// throws an ErrorException that says so.
[[noreturn]] TESSARIN_API void throwDamaged(NSEntityDescription const& found, NSEntityDescription const& wanted, RecordKey key);
/// The version of a record as a file holds it. Throws when it, or the key, is none that a store gives out.
TESSARIN_API std::uint32_t versionFrom(RecordKey key, std::int64_t stored);
inline void requireSameTree(NSEntityDescription const& found, NSEntityDescription const& wanted, RecordKey key) {
    if (found.rootEntity() != wanted.rootEntity()) throwDamaged(found, wanted, key);
}

} // namespace Tessarin
