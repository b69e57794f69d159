#include "Tessarin/platform/queues/engine/ItemShelves.h"

#include <algorithm>
#include <span>
#include <utility>

namespace Tessarin::engine {

Batch Shelves::take() noexcept {
    auto const found = std::ranges::find_if(shelves_, [](auto const& shelf) { return shelf.page != 0; });
    return found != shelves_.end() ? std::exchange(*found, {}).batch : Batch{};
}

void Shelves::keepPage(FreeItem* items) noexcept {
    pages_.push(items);
    if (pages_.count == 2 * ItemDepot::mostAtOnce) givePages(ItemDepot::mostAtOnce);
}

void Shelves::giveAll() noexcept {
    for (auto& shelf : shelves_)
        if (shelf.page != 0) leave(shelf);
    giveParts();
    givePages(pages_.count);
}

/// The shelf that the page has, an empty one, or one that is cleared for it.
Shelves::Shelf& Shelves::turnTo(std::uintptr_t page) noexcept {
    auto const at = (std::uint64_t{page} * 0x9e3779b97f4a7c15U) >> (64 - setBits);
    std::span const set(&shelves_[at * ways], ways);
    Shelf* chosen = nullptr;
    for (auto& shelf : set) {
        if (shelf.page == page) return *(recent_ = &shelf);
        if (shelf.page == 0) chosen = &shelf;
    }
    if (!chosen) leave(*(chosen = &set[oldest_++ % ways]));
    chosen->page = page;
    return *(recent_ = chosen);
}

void Shelves::leave(Shelf& shelf) noexcept {
    leaving_[leavingCount_++] = std::exchange(shelf, {}).batch;
    if (leavingCount_ == leaving_.size()) giveParts();
}

void Shelves::giveParts() noexcept { itemDepot().put(std::span(leaving_.data(), std::exchange(leavingCount_, 0))); }

void Shelves::givePages(int count) noexcept {
    PageList given;
    while (given.count < count) given.push(pages_.pop());
    itemDepot().put(given);
}

} // namespace Tessarin::engine
