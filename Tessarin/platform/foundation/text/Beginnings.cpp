#include "Tessarin/platform/foundation/text/BeginningsPrivate.h"

#include "Tessarin/platform/foundation/text/ClustersPrivate.h"

#include <algorithm>
#include <bit>

namespace Tessarin::clusters {
namespace {

constexpr std::uint64_t eachByte = 0x0101010101010101U;

/// In each byte the count of bits in it and in those below. Not every processor that this is built for counts bits by itself.
std::uint64_t runningCounts(std::uint64_t word) noexcept {
    word -= (word >> 1) & 0x5555555555555555U;
    word = (word & 0x3333333333333333U) + ((word >> 2) & 0x3333333333333333U);
    return ((word + (word >> 4)) & 0x0F0F0F0F0F0F0F0FU) * eachByte;
}

std::size_t bitsIn(std::uint64_t word) noexcept { return runningCounts(word) >> 56; }

/// The place of the bit before which there are `rank` others.
std::size_t placeOf(std::uint64_t word, std::size_t rank) noexcept {
    auto const counts = runningCounts(word);
    // The bytes that have not reached the rank yet: 0x80 + rank - count keeps its high bit as long as count <= rank.
    auto const notYet = (((rank | 0x80) * eachByte) - counts) & (0x80 * eachByte);
    auto const shift = 8 * bitsIn(notYet);
    if (shift > 0) rank -= (counts >> (shift - 8)) & 0xFF;
    for (word >>= shift; rank > 0; --rank) word &= word - 1;
    return shift + static_cast<std::size_t>(std::countr_zero(word));
}

} // namespace

bool isOfSingleBytes(std::string_view text) noexcept {
    for (std::size_t at = 0;;) {
        at += plainRun(text, at);
        if (at == text.size()) return true;
        if (text[at] != '\r' || text.substr(at).starts_with("\r\n")) return false;
        ++at;
    }
}

Beginnings::Beginnings(std::string_view text) : words_(text.size() / 64 + 1) {
    forEachRun(text, [this](std::size_t offset, std::size_t count) {
        mark(offset, count);
        count_ += count;
        return true;
    });
    countBlocks();
    mark(text.size(), 1);
}

void Beginnings::mark(std::size_t from, std::size_t count) noexcept {
    while (count > 0) {
        auto const bit = from % 64, here = std::min(count, 64 - bit);
        words_[from / 64] |= (~std::uint64_t{0} >> (64 - here)) << bit;
        from += here;
        count -= here;
    }
}

void Beginnings::countBlocks() {
    before_.reserve(words_.size() / wordsPerBlock + 1);
    hints_.reserve(count_ / clustersPerHint + 2);
    std::size_t all = 0;
    for (std::size_t word = 0; word < words_.size(); ++word) {
        if (word % wordsPerBlock == 0) before_.push_back(all);
        all += bitsIn(words_[word]);
        while (hints_.size() * clustersPerHint < all) hints_.push_back(before_.size() - 1);
    }
    hints_.push_back(before_.size() - 1);
}

std::size_t Beginnings::offsetOf(std::size_t index) const noexcept {
    // The last block that not more than `index` clusters begin before.
    auto low = hints_[index / clustersPerHint], high = hints_[index / clustersPerHint + 1];
    while (low < high) {
        auto const middle = (low + high + 1) / 2;
        if (before_[middle] <= index)
            low = middle;
        else
            high = middle - 1;
    }
    auto rank = index - before_[low];
    auto word = low * wordsPerBlock;
    for (auto bits = bitsIn(words_[word]); rank >= bits; bits = bitsIn(words_[++word])) rank -= bits;
    return word * 64 + placeOf(words_[word], rank);
}

std::size_t Beginnings::nextAfter(std::size_t offset) const noexcept {
    auto word = (offset + 1) / 64;
    auto bits = words_[word] & (~std::uint64_t{0} << ((offset + 1) % 64));
    while (bits == 0) bits = words_[++word];
    return word * 64 + static_cast<std::size_t>(std::countr_zero(bits));
}

std::size_t Beginnings::indexOf(std::size_t offset) const noexcept {
    auto const last = offset / 64;
    auto index = before_[last / wordsPerBlock];
    for (auto word = last / wordsPerBlock * wordsPerBlock; word < last; ++word) index += bitsIn(words_[word]);
    return index + bitsIn(words_[last] & (~std::uint64_t{0} >> (63 - offset % 64))) - 1;
}

} // namespace Tessarin::clusters
