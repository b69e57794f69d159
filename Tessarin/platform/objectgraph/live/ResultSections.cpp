#include "Tessarin/platform/objectgraph/live/ResultSectionsPrivate.h"

#include <algorithm>

namespace Tessarin {

std::size_t ResultSections::firstRankOf(std::size_t section) const {
    firstRanks_.resize(sections_.size());
    for (; counted_ <= section; ++counted_)
        firstRanks_[counted_] = counted_ == 0 ? 0 : firstRanks_[counted_ - 1] + sections_[counted_ - 1].count;
    return firstRanks_[section];
}

std::size_t ResultSections::sectionOf(std::size_t& rank) const {
    firstRankOf(sections_.size() - 1);
    auto const next = std::ranges::upper_bound(firstRanks_, rank); // of empty sections before it the last one begins there, too
    auto const section = static_cast<std::size_t>(next - firstRanks_.begin()) - 1;
    rank -= firstRanks_[section];
    return section;
}

void ResultSections::insert(std::size_t section, Value name) {
    sections_.insert(sections_.begin() + static_cast<std::ptrdiff_t>(section), {std::move(name), 0});
    counted_ = std::min(counted_, section);
}

void ResultSections::erase(std::size_t section) {
    sections_.erase(sections_.begin() + static_cast<std::ptrdiff_t>(section));
    counted_ = std::min(counted_, section);
}

void ResultSections::add(std::size_t section, std::ptrdiff_t count) {
    sections_[section].count += static_cast<std::size_t>(count);
    counted_ = std::min(counted_, section + 1);
}

void ResultSections::clear() {
    sections_.clear();
    counted_ = 0;
}

} // namespace Tessarin
