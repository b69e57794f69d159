#include "Tessarin/platform/sqlite/TableWalk.h"

#include <algorithm>
#include <array>
#include <limits>

// A walk ends, since keys only grow, and each page but the inner ones, which are few levels deep, must have one.
namespace Tessarin::SQLite {
namespace {

using Kind = TableRecord::Kind;

/// What a serial type means that takes one byte.
struct Serial {
    std::uint8_t size;
    Kind kind;
};
constexpr std::size_t serialCount = 128;

constexpr Serial serialOf(std::size_t type) {
    auto const size = static_cast<std::uint8_t>(sizeOfType(type));
    if (type >= 12) return {size, type % 2 == 0 ? Kind::Bytes : Kind::Text};
    return {size, type == 0 ? Kind::Null : type == 7 ? Kind::Real : isIntegerType(type) ? Kind::Integer : Kind::Missing};
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
        auto const size = sizeOfType(longType);
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

/// A record in a leaf.
struct TableWalk::Cell {
    std::int64_t key = 0;
    std::uint64_t size = 0;            // of the record
    std::byte const* begin = nullptr; // of as much of it as stands there; null where that is outside

    Cell(BTreePage const& leaf, std::size_t at) {
        std::uint64_t number = 0;
        if (auto const* const start = leaf.cell(at)) begin = readVariable(start, leaf.end(), size);
        if (begin) begin = readVariable(begin, leaf.end(), number);
        key = static_cast<std::int64_t>(number);
    }
};

namespace {

/// The last key of the pages before a cell of an inner page.
bool readLastKey(BTreePage const& inner, std::size_t at, std::int64_t& key) {
    std::uint64_t number = 0;
    auto const* const start = inner.cell(at);
    bool const isThere = start && readVariable(start, inner.end(), number);
    key = static_cast<std::int64_t>(number);
    return isThere;
}

} // namespace

TableWalk::End TableWalk::visit(SnapshotPages::Number number, int depth, Walk& walk) {
    if (number == 1 || depth > BTreePage::deepest) return End::Broken;
    auto page = pages_.known(number);
    bool const isPassing = page.empty();
    if (isPassing) page = pages_.passing(number);
    BTreePage const cells(page, pages_.usableSize(), BTreePage::ofTable);
    if (!cells.isSound()) return End::Broken;
    if (!cells.isInner()) return visitLeaf(cells, walk, isPassing);
    if (isPassing) pages_.keep(number, page);
    return visitInner(cells, depth, walk);
}

/// The numbers of the pages are taken down first: the page itself is gone when the next is read.
TableWalk::End TableWalk::visitInner(BTreePage const& page, int depth, Walk& walk) {
    std::vector<SnapshotPages::Number> below;
    bool reachesLast = false;
    for (std::size_t at = 0; at < page.count() && !reachesLast; ++at) {
        std::int64_t key = 0;
        if (!readLastKey(page, at, key)) return End::Broken;
        if (key < walk.first) continue;
        below.push_back(page.below(at));
        reachesLast = key >= walk.last;
    }
    if (!reachesLast) below.push_back(page.below(page.count()));
    for (auto const number : below)
        if (auto const end = visit(number, depth + 1, walk); end != End::OfPage) return end;
    return End::OfPage;
}

TableWalk::End TableWalk::visitLeaf(BTreePage page, Walk& walk, bool isPassing) {
    if (page.count() == 0) return End::Broken;
    for (std::size_t at = 0; at < page.count(); ++at) {
        Cell cell(page, at);
        if (!cell.begin || cell.key <= walk.previous) return End::Broken;
        if (cell.key > walk.last) return End::OfSpan;
        walk.previous = cell.key;
        if (cell.key < walk.first) continue;
        if (isPassing && cell.size > pages_.usableSize() - 35) { // the pages where it goes on would take this one away
            leaf_.assign(page.start(), page.end());
            page = BTreePage(leaf_, leaf_.size(), BTreePage::ofTable);
            cell = Cell(page, at);
            isPassing = false;
        }
        std::span<std::byte const> payload;
        if (!payloadOf(cell, page, payload) || !record_.parse(cell.key, payload) || !walk.take(record_)) return End::Broken;
    }
    return End::OfPage;
}

std::optional<TableRecord const*> TableWalk::find(std::int64_t key) {
    auto number = root_;
    for (int depth = 0; number != 1 && depth <= BTreePage::deepest; ++depth) {
        BTreePage const page(pages_.kept(number), pages_.usableSize(), BTreePage::ofTable);
        if (!page.isSound()) return {};
        if (!page.isInner()) return findIn(page, key);
        auto const next = firstCellNot(page, [&](std::size_t at) -> std::optional<bool> {
            std::int64_t last = 0;
            return readLastKey(page, at, last) ? std::optional(last < key) : std::nullopt;
        });
        if (!next) return {};
        number = page.below(*next);
    }
    return {};
}

/// Of the first record of a leaf that has that key or a larger one. Where none was deleted, all keys follow one another.
std::optional<std::size_t> TableWalk::placeIn(BTreePage const& leaf, std::int64_t key) {
    if (leaf.count() == 0) return 0;
    Cell const first(leaf, 0), last(leaf, leaf.count() - 1);
    if (!first.begin || !last.begin) return {};
    auto const distance = [&](std::int64_t to) { return static_cast<std::uint64_t>(to) - static_cast<std::uint64_t>(first.key); };
    if (key >= first.key && key <= last.key && distance(last.key) == leaf.count() - 1)
        return Cell(leaf, distance(key)).key == key ? std::optional(static_cast<std::size_t>(distance(key))) : std::nullopt;
    return firstCellNot(leaf, [&](std::size_t at) -> std::optional<bool> {
        Cell const cell(leaf, at);
        return cell.begin ? std::optional(cell.key < key) : std::nullopt;
    });
}

std::optional<TableRecord const*> TableWalk::findIn(BTreePage const& leaf, std::int64_t key) {
    auto const place = placeIn(leaf, key);
    if (!place) return {};
    if (*place == leaf.count()) return nullptr;
    Cell const cell(leaf, *place);
    if (cell.key != key) return nullptr;
    std::span<std::byte const> payload;
    if (!payloadOf(cell, leaf, payload) || !record_.parse(key, payload)) return {};
    return &record_;
}

/// Puts together what begins in a leaf and goes on in other pages.
bool TableWalk::payloadOf(Cell const& cell, BTreePage const& page, std::span<std::byte const>& payload) {
    auto const usable = pages_.usableSize();
    auto const left = static_cast<std::size_t>(page.end() - cell.begin);
    if (cell.size <= usable - 35) {
        payload = {cell.begin, static_cast<std::size_t>(cell.size)};
        return cell.size <= left;
    }
    auto const least = leastInPage(usable);
    auto here = least + (cell.size - least) % (usable - 4);
    if (here > usable - 35) here = least;
    if (cell.size > pages_.size() || here + 4 > left) return false;
    gathered_.assign(cell.begin, cell.begin + here);
    if (!followOverflow(bigEndian<std::uint32_t>(cell.begin + here), cell.size)) return false;
    payload = gathered_;
    return true;
}

bool TableWalk::followOverflow(SnapshotPages::Number next, std::uint64_t size) {
    while (gathered_.size() < size) {
        auto const page = pages_.passing(next);
        if (page.empty()) return false;
        auto const share = std::min<std::uint64_t>(size - gathered_.size(), pages_.usableSize() - 4);
        gathered_.insert(gathered_.end(), &page[4], &page[4] + share);
        next = bigEndian<std::uint32_t>(page.data());
    }
    return true;
}

} // namespace Tessarin::SQLite
