#include "Tessarin/platform/sqlite/TableWalk.h"

#include "Tessarin/platform/sqlite/BigEndian.h"

#include <algorithm>
#include <array>
#include <limits>

// Nothing that a page says is believed before it is compared with the page's size: a file may be damaged, or made to do harm. A
// walk ends, since keys only grow, and each page but the inner ones, which are few levels deep, must have one.
namespace Tessarin::SQLite {
namespace {

constexpr std::byte innerPage{5}, leafPage{13};
constexpr std::size_t innerHeader = 12, leafHeader = 8;
constexpr int deepest = 20;

using Kind = TableRecord::Kind;

/// What a serial type means that takes one byte.
struct Serial {
    std::uint8_t size;
    Kind kind;
};
constexpr std::size_t serialCount = 128;

constexpr Serial serialOf(std::size_t type) {
    constexpr std::uint8_t sizes[] = {0, 1, 2, 3, 4, 6, 8, 8, 0, 0, 0, 0};
    if (type >= std::size(sizes)) return {static_cast<std::uint8_t>((type - 12) / 2), type % 2 == 0 ? Kind::Bytes : Kind::Text};
    bool const isReserved = type == 10 || type == 11;
    return {sizes[type], type == 0 ? Kind::Null : type == 7 ? Kind::Real : isReserved ? Kind::Missing : Kind::Integer};
}

constexpr auto serials = [] {
    std::array<Serial, serialCount> all{};
    for (std::size_t type = 0; type < serialCount; ++type) all[type] = serialOf(type);
    return all;
}();

} // namespace

bool TableRecord::parse(std::int64_t key, std::span<std::byte const> payload) {
    key_ = key;
    start_ = payload.data();
    std::uint64_t offset = 0; // first the header's size
    auto const* at = readVariable(start_, start_ + payload.size(), offset);
    if (!at || offset > payload.size()) return false;
    auto const* const headerEnd = start_ + offset;
    bool isSound = true;
    auto* cell = cells_;
    for (; at < headerEnd && cell < cells_ + most; ++cell) {
        auto const type = static_cast<unsigned char>(*at);
        if (type < serialCount) {
            ++at;
            auto const [size, kind] = serials[type];
            *cell = {static_cast<std::uint32_t>(offset), size, kind, type};
            isSound = isSound && kind != Kind::Missing;
            offset += size;
            continue;
        }
        std::uint64_t longType = 0;
        at = readVariable(at, headerEnd, longType);
        auto const size = (longType - 12) / 2;
        if (!at || size > payload.size()) return false;
        *cell = {static_cast<std::uint32_t>(offset), static_cast<std::uint32_t>(size),
                 longType % 2 == 0 ? Kind::Bytes : Kind::Text, 0};
        offset += size;
    }
    count_ = static_cast<std::size_t>(cell - cells_);
    return isSound && offset <= payload.size();
}

struct TableWalk::Walk {
    std::int64_t first, last;
    FunctionRef<bool(TableRecord const&)> take;
    std::int64_t previous; // key
};

bool TableWalk::read(std::int64_t first, std::int64_t last, FunctionRef<bool(TableRecord const&)> take) {
    Walk walk{first, last, take, std::numeric_limits<std::int64_t>::min()};
    return visit(root_, 0, walk) != End::Broken;
}

TableWalk::End TableWalk::visit(SnapshotPages::Number number, int depth, Walk& walk) {
    if (auto const known = inner_.find(number); known != inner_.end()) return visitInner(known->second, depth, walk);
    auto const page = pages_.page(number);
    if (page.empty() || number == 1 || depth > deepest) return End::Broken;
    if (page.front() == leafPage) return visitLeaf(page, walk);
    if (page.front() != innerPage) return End::Broken;
    if (inner_.size() < mostInner) inner_.try_emplace(number, page.begin(), page.end());
    return visitInner(page, depth, walk);
}

/// The numbers of the pages are taken down first: the page itself is gone when the next is read.
TableWalk::End TableWalk::visitInner(Page page, int depth, Walk& walk) {
    auto const usable = pages_.usableSize();
    auto const cells = bigEndian<std::uint16_t>(&page[3]);
    if (innerHeader + cells * std::size_t{2} > usable) return End::Broken;
    std::vector<SnapshotPages::Number> below;
    bool reachesLast = false;
    for (std::size_t cell = 0; cell < cells && !reachesLast; ++cell) {
        auto const at = bigEndian<std::uint16_t>(&page[innerHeader + cell * 2]);
        if (at + std::size_t{5} > usable) return End::Broken;
        std::uint64_t key = 0;
        if (!readVariable(&page[at] + 4, page.data() + usable, key)) return End::Broken;
        if (static_cast<std::int64_t>(key) < walk.first) continue;
        below.push_back(bigEndian<std::uint32_t>(&page[at]));
        reachesLast = static_cast<std::int64_t>(key) >= walk.last;
    }
    if (!reachesLast) below.push_back(bigEndian<std::uint32_t>(&page[8]));
    for (auto const number : below)
        if (auto const end = visit(number, depth + 1, walk); end != End::OfPage) return end;
    return End::OfPage;
}

TableWalk::End TableWalk::visitLeaf(Page page, Walk& walk) {
    auto const usable = pages_.usableSize();
    auto const cells = bigEndian<std::uint16_t>(&page[3]);
    if (cells == 0 || leafHeader + cells * std::size_t{2} > usable) return End::Broken;
    for (std::size_t cell = 0; cell < cells; ++cell) {
        auto const offset = bigEndian<std::uint16_t>(&page[leafHeader + cell * 2]);
        if (offset >= usable) return End::Broken;
        auto const* const end = page.data() + usable;
        std::uint64_t size = 0, number = 0;
        auto const* at = readVariable(&page[offset], end, size);
        if (at) at = readVariable(at, end, number);
        auto const key = static_cast<std::int64_t>(number);
        if (!at || key <= walk.previous) return End::Broken;
        if (key > walk.last) return End::OfSpan;
        walk.previous = key;
        if (key < walk.first) continue;
        std::span<std::byte const> payload(at, std::min<std::size_t>(size, static_cast<std::size_t>(end - at)));
        if (size > usable - 35) { // some of it stands in other pages, whose reading would take this one away
            if (page.data() != leaf_.data()) {
                leaf_.assign(page.begin(), page.end());
                at = leaf_.data() + (at - page.data());
                page = leaf_;
            }
            if (!payloadAt(at, page, size, payload)) return End::Broken;
        }
        if (payload.size() != size || !record_.parse(key, payload) || !walk.take(record_)) return End::Broken;
    }
    return End::OfPage;
}

/// Puts together what begins in a leaf and goes on in other pages.
bool TableWalk::payloadAt(std::byte const* at, Page page, std::uint64_t size, std::span<std::byte const>& payload) {
    auto const usable = pages_.usableSize();
    auto const least = (usable - 12) * 32 / 255 - 23;
    auto here = least + (size - least) % (usable - 4);
    if (here > usable - 35) here = least;
    auto const left = static_cast<std::size_t>(page.data() + usable - at);
    if (size > pages_.size() || here + 4 > left) return false;
    gathered_.assign(at, at + here);
    if (!followOverflow(bigEndian<std::uint32_t>(at + here), size)) return false;
    payload = gathered_;
    return true;
}

bool TableWalk::followOverflow(SnapshotPages::Number next, std::uint64_t size) {
    while (gathered_.size() < size) {
        auto const page = pages_.page(next);
        if (page.empty()) return false;
        auto const share = std::min<std::uint64_t>(size - gathered_.size(), pages_.usableSize() - 4);
        gathered_.insert(gathered_.end(), &page[4], &page[4] + share);
        next = bigEndian<std::uint32_t>(page.data());
    }
    return true;
}

} // namespace Tessarin::SQLite
