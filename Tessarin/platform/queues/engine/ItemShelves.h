#pragma once
#include "Tessarin/platform/queues/engine/ItemDepot.h"
#include <array>
#include <cstddef>
#include <cstdint>

namespace Tessarin::engine {

/// Where one thread gathers the free items of each page. In sets by page, so that finding a shelf costs the same with the pages
/// of many threads as with those of few.
class Shelves {
public:
    struct Shelf {
        std::uintptr_t page = 0; // 0 while it is empty
        Batch batch;
    };

    Shelf& of(std::uintptr_t page) noexcept { return recent_->page == page ? *recent_ : turnTo(page); }
    /// Some items, of one page; none where all shelves are empty.
    Batch take() noexcept;
    /// Keeps a whole page; when there are many, some go to the depot.
    void keepPage(FreeItem* items) noexcept;
    PageList& pages() noexcept { return pages_; }
    /// All to the depot.
    void giveAll() noexcept;

private:
    static constexpr std::size_t ways = 4;
    static constexpr int setBits = 4;

    Shelf& turnTo(std::uintptr_t page) noexcept;
    void leave(Shelf& shelf) noexcept;
    void giveParts() noexcept;
    void givePages(int count) noexcept;

    std::array<Shelf, (std::size_t{1} << setBits) * ways> shelves_;
    Shelf* recent_ = shelves_.data();
    std::size_t oldest_ = 0;
    std::array<Batch, 16> leaving_; // parts of pages, on their way to the depot
    std::size_t leavingCount_ = 0;
    PageList pages_;
};

} // namespace Tessarin::engine
