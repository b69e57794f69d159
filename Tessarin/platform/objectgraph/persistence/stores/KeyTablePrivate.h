#pragma once
#include "Tessarin/platform/objectgraph/persistence/stores/RecordKey.h"
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace Tessarin {

/// A map from record keys to pointers, made for keys that are handed out in sequence: pages of 64 neighbours behind an
/// open-addressed directory, so that walking a table touches each cache line once. Not synchronised.
template <class T> class KeyTable {
    struct Page;

public:
    T* find(RecordKey key) const noexcept {
        auto const* page = pageOf(key);
        return page ? page->entries[slotOf(key)] : nullptr;
    }

    /// Sets what stands under `key`; null removes. Gives back what stood there.
    T* set(RecordKey key, T* value) {
        if (!value) return exchange(pageOf(key), key, nullptr);
        return exchange(&pageFor(key), key, value);
    }
    /// Removes `value` if it is what stands under `key`.
    void remove(RecordKey key, T const* value) {
        auto* page = pageOf(key);
        if (page && page->entries[slotOf(key)] == value) exchange(page, key, nullptr);
    }
    /// What stands under a key, to be looked at and perhaps filled, with one look-up for both.
    class Place {
    public:
        T* value() const noexcept { return page_.entries[slotOf(key_)]; }
        void set(T& value) { table_.exchange(&page_, key_, &value); }

    private:
        friend class KeyTable;
        Place(KeyTable& table, Page& page, RecordKey key) noexcept : table_(table), page_(page), key_(key) {}
        KeyTable& table_;
        Page& page_;
        RecordKey key_;
    };
    /// To be filled at once: an empty place is not kept.
    Place place(RecordKey key) { return {*this, pageFor(key), key}; }

    std::size_t size() const noexcept { return count_; }

    /// Calls `each(key, pointer)` for every entry; the table must not change meanwhile.
    template <class Each> void forEach(Each each) const {
        for (auto const& page : directory_) {
            if (!page) continue;
            for (std::size_t at = 0; at < pageSize; ++at)
                if (page->entries[at]) each(static_cast<RecordKey>(page->number * pageSize + at), page->entries[at]);
        }
    }

private:
    static constexpr std::uint64_t pageSize = 64;
    struct Page {
        std::uint64_t number = 0;
        std::uint32_t used = 0;
        std::array<T*, pageSize> entries{};
    };

    T* exchange(Page* page, RecordKey key, T* value) {
        if (!page) return nullptr;
        auto* const before = std::exchange(page->entries[slotOf(key)], value);
        auto const change = (value != nullptr) - (before != nullptr);
        page->used = static_cast<std::uint32_t>(static_cast<int>(page->used) + change);
        count_ += static_cast<std::size_t>(change);
        if (page->used == 0 && before) takeOut(*page);
        return before;
    }
    static std::uint64_t numberOf(RecordKey key) noexcept { return static_cast<std::uint64_t>(key) / pageSize; }
    static std::size_t slotOf(RecordKey key) noexcept { return static_cast<std::uint64_t>(key) % pageSize; }
    std::size_t home(std::uint64_t number) const noexcept { return (number * 0x9E3779B97F4A7C15ULL) >> shift_; }

    Page* pageOf(RecordKey key) const noexcept {
        auto const number = numberOf(key);
        if (last_ && last_->number == number) return last_;
        if (directory_.empty()) return nullptr;
        for (auto at = home(number);; at = after(at)) {
            auto* page = directory_[at].get();
            if (!page) return nullptr;
            if (page->number == number) return last_ = page;
        }
    }

    Page& pageFor(RecordKey key) {
        if (auto* page = pageOf(key)) return *page;
        if ((pages_ + 1) * 2 > directory_.size()) rebuild(directory_.empty() ? smallest : directory_.size() * 2);
        auto page = spare_ ? std::move(spare_) : std::make_unique<Page>();
        page->number = numberOf(key);
        ++pages_;
        return *(last_ = place(std::move(page)));
    }

    Page* place(std::unique_ptr<Page> page) {
        auto at = home(page->number);
        while (directory_[at]) at = after(at);
        directory_[at] = std::move(page);
        return directory_[at].get();
    }

    void rebuild(std::size_t size) {
        auto old = std::move(directory_);
        directory_ = std::vector<std::unique_ptr<Page>>(size);
        shift_ = 64 - std::countr_zero(size);
        for (auto& page : old)
            if (page) place(std::move(page));
    }

    /// One empty page is kept: objects that come and go one by one, each on a page of its own, would make and free one each.
    void takeOut(Page& page) {
        auto hole = home(page.number);
        while (directory_[hole].get() != &page) hole = after(hole);
        spare_ = std::move(directory_[hole]);
        for (auto next = after(hole); directory_[next]; next = after(next)) { // what stands behind its home moves up
            auto const way = (next - home(directory_[next]->number)) & (directory_.size() - 1);
            if (way < ((next - hole) & (directory_.size() - 1))) continue;
            directory_[hole] = std::move(directory_[next]);
            hole = next;
        }
        if (last_ == spare_.get()) last_ = nullptr;
        if (--pages_ * 8 < directory_.size() && directory_.size() > smallest) rebuild(directory_.size() / 2);
    }
    std::size_t after(std::size_t at) const noexcept { return (at + 1) & (directory_.size() - 1); }

    static constexpr std::size_t smallest = 16; // of a directory that is not empty
    std::vector<std::unique_ptr<Page>> directory_; // its size is a power of two
    std::size_t pages_ = 0;
    std::unique_ptr<Page> spare_; // without entries
    std::size_t count_ = 0;
    int shift_ = 64;
    mutable Page* last_ = nullptr;
};

} // namespace Tessarin
