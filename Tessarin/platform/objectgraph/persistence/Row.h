#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/persistence/KeyTable.h"
#include "Tessarin/platform/objectgraph/persistence/RowLayout.h"
#include "Tessarin/platform/runtime/Value.h"
#include <atomic>
#include <bit>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>

namespace Tessarin {

class RowBuilder;
class RowCache;

/// The values of one record at one version: immutable, counted, packed into one allocation (header, a bit per cell that is
/// present, fixed cells of 8 bytes, then text and bytes). Shared between contexts, change sets and the store; any thread.
/// A row does not keep its layout alive: whoever keeps rows keeps their RowSpace.
class TESSARIN_API Row {
public:
    RowLayout const& layout() const noexcept { return *layout_; }
    NSEntityDescription const& entity() const noexcept { return layout_->entity(); }
    RecordKey key() const noexcept { return key_; }
    /// 1 for a record that was just made, one more for each saved change.
    std::uint32_t version() const noexcept { return version_; }

    bool isPresent(std::size_t cell) const noexcept { return (presence()[cell / 64] >> (cell % 64)) & 1; }
    // An absent cell reads as 0 or empty.
    std::int64_t integer(std::size_t cell) const noexcept { return static_cast<std::int64_t>(cells()[cell]); }
    double real(std::size_t cell) const noexcept { return std::bit_cast<double>(cells()[cell]); }
    RecordKey reference(std::size_t cell) const noexcept { return integer(cell); }
    std::string_view text(std::size_t cell) const noexcept {
        auto const place = cells()[cell]; // offset from the row's start, and size
        return {reinterpret_cast<char const*>(this) + (place >> 32), static_cast<std::size_t>(place & 0xFFFF'FFFF)};
    }
    std::span<std::byte const> bytes(std::size_t cell) const noexcept {
        auto const content = text(cell);
        return {reinterpret_cast<std::byte const*>(content.data()), content.size()};
    }
    /// The cell as the value that an application sees; absent for a reference, which only a context can resolve.
    Value value(std::size_t cell) const;
    bool cellEquals(std::size_t cell, Row const& other) const noexcept;

private:
    friend class RowBuilder;
    friend class RowCache;
    friend class RowRef;

    Row(RowLayout const& layout, RecordKey key, std::uint32_t version) noexcept : version_(version), layout_(&layout), key_(key) {}
    std::uint64_t const* presence() const noexcept { return reinterpret_cast<std::uint64_t const*>(this + 1); }
    std::uint64_t const* cells() const noexcept { return presence() + (layout_->cells().size() + 63) / 64; }
    void destroy() noexcept;

    // The count stands in steps of two; the lowest bit says that the cache knows this row.
    static constexpr std::uint32_t oneReference = 2;
    static constexpr std::uint32_t cached = 1;
    mutable std::atomic<std::uint32_t> references_{oneReference};
    std::uint32_t version_;
    RowLayout const* layout_;
    RecordKey key_;
};

/// A kept row, or none.
class TESSARIN_API RowRef {
public:
    RowRef() noexcept = default;
    RowRef(std::nullptr_t) noexcept {}
    RowRef(RowRef const& other) noexcept : row_(other.row_) {
        if (row_) row_->references_.fetch_add(Row::oneReference, std::memory_order_relaxed);
    }
    RowRef(RowRef&& other) noexcept : row_(std::exchange(other.row_, nullptr)) {}
    RowRef& operator=(RowRef other) noexcept {
        std::swap(row_, other.row_);
        return *this;
    }
    ~RowRef() {
        if (row_ && row_->references_.fetch_sub(Row::oneReference, std::memory_order_acq_rel) < 2 * Row::oneReference) row_->destroy();
    }

    /// Takes over a count that the caller already holds.
    static RowRef adopt(Row* row) noexcept {
        RowRef ref;
        ref.row_ = row;
        return ref;
    }

    Row const* get() const noexcept { return row_; }
    Row const& operator*() const noexcept { return *row_; }
    Row const* operator->() const noexcept { return row_; }
    explicit operator bool() const noexcept { return row_ != nullptr; }
    friend bool operator==(RowRef const&, RowRef const&) noexcept = default;

private:
    Row* row_ = nullptr;
};

} // namespace Tessarin
