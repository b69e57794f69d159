#include "Tessarin/platform/sqlite/IndexWalk.h"

#include "Tessarin/platform/sqlite/RecordFormat.h"

#include <algorithm>
#include <compare>
#include <cstring>
#include <limits>

// The entries of an index are records of a column and a key, in the order of both; those of inner pages are entries as well, which
// stand between those of the pages before and after them.
namespace Tessarin::SQLite {
namespace {

/// How the first bytes differ; an empty text may stand nowhere.
int firstDifference(std::byte const* bytes, std::string_view with, std::size_t size) {
    return size == 0 ? 0 : std::memcmp(bytes, with.data(), size);
}

struct Entry {
    using Kind = IndexWalk::Sought::Kind;

    /// Not sound where it is not within the page, as far as it must be.
    Entry(BTreePage const& page, std::size_t at) {
        std::uint64_t size = 0, header = 0;
        auto const* start = page.cell(at);
        if (start) start = readVariable(start, page.end(), size);
        if (!start) return;
        end = start + std::min<std::uint64_t>(size, static_cast<std::uint64_t>(page.end() - start));
        auto const* const types = readVariable(start, end, header);
        if (!types || header > static_cast<std::uint64_t>(end - start)) return;
        content = start + header;
        afterType = readVariable(types, content, type);
        isSound = afterType && type != 10 && type != 11;
    }

    /// As SQLite orders: nothing, numbers, texts, bytes. Absent where they cannot be compared.
    std::optional<std::strong_ordering> compared(IndexWalk::Sought const& sought) const {
        if (!isSound) return {};
        if (type == 0) return std::strong_ordering::less;
        auto const kind = type < 12 ? Kind::Integer : type % 2 == 0 ? Kind::Bytes : Kind::Text;
        if (kind != sought.kind) return kind <=> sought.kind;
        auto const left = static_cast<std::size_t>(end - content);
        if (kind != Kind::Integer) {
            auto const size = static_cast<std::size_t>(sizeOfType(type));
            auto const common = std::min(size, sought.content.size());
            if (common > left) return {};
            auto const order = firstDifference(content, sought.content, common) <=> 0;
            return order != 0 ? order : size <=> sought.content.size();
        }
        if (!isIntegerType(type) || sizeOfType(type) > left) return {};
        return integerOfType(content, type) <=> sought.integer;
    }
    /// The record's key, of an entry that has what is sought; it is then short.
    std::optional<std::int64_t> key() const {
        auto const size = static_cast<std::size_t>(sizeOfType(type));
        auto const left = static_cast<std::size_t>(end - content);
        std::uint64_t keyType = 0;
        if (readVariable(afterType, content, keyType) != content || !isIntegerType(keyType) || size + sizeOfType(keyType) > left)
            return {};
        return integerOfType(content + size, keyType);
    }

    bool isSound = false;
    std::uint64_t type = 0;
    std::byte const* afterType = nullptr;
    std::byte const* content = nullptr; // the column's
    std::byte const* end = nullptr; // of as much as stands in the page
};

} // namespace

struct IndexWalk::Search {
    Sought const& sought;
    FunctionRef<bool(std::int64_t key)> take;
    std::uint64_t start = 0; // of a text that has that many bytes
    std::int64_t previous = std::numeric_limits<std::int64_t>::min(); // key

    static constexpr std::size_t startSize = sizeof(start);
    Search(Sought const& wanted, FunctionRef<bool(std::int64_t key)> taker) : sought(wanted), take(taker) {
        if (hasStart()) start = bigEndian<std::uint64_t>(reinterpret_cast<std::byte const*>(sought.content.data()));
    }
    bool hasStart() const noexcept { return sought.content.size() >= startSize; }
};

/// Whether an entry stands before those that have what is sought. Absent where they cannot be compared. Most entries are short and
/// of the same kind, and differ early: they are compared at once.
std::optional<bool> IndexWalk::isBefore(BTreePage const& page, std::size_t at, Search const& search) {
    static constexpr unsigned oneByte = 0x80;
    auto const& sought = search.sought;
    auto const* const cell = page.cell(at);
    if (cell && sought.kind == Sought::Kind::Text && page.end() - cell > oneByte) {
        unsigned const entry = std::to_integer<unsigned>(cell[0]), header = std::to_integer<unsigned>(cell[1]),
                       type = std::to_integer<unsigned>(cell[2]);
        auto const size = (type - 13) / 2;
        bool const isShortText = (entry | header | type) < oneByte && type % 2 == 1 && type >= 13 && header >= 2;
        if (isShortText && header + size <= entry) {
            auto const* const text = cell + 1 + header;
            if (size >= Search::startSize && search.hasStart())
                if (auto const start = bigEndian<std::uint64_t>(text); start != search.start) return start < search.start;
            auto const order = firstDifference(text, sought.content, std::min<std::size_t>(size, sought.content.size()));
            return order != 0 ? order < 0 : size < sought.content.size();
        }
    }
    auto const order = Entry(page, at).compared(sought);
    return order ? std::optional(*order < 0) : std::nullopt;
}

bool IndexWalk::canFind(Sought const& sought) const noexcept {
    static constexpr std::size_t mostBesides = 32; // the entry's header and the key
    return sought.kind == Sought::Kind::Integer || sought.content.size() + mostBesides <= leastInPage(pages_.usableSize());
}

bool IndexWalk::find(Sought const& sought, FunctionRef<bool(std::int64_t key)> take) {
    Search search{sought, take};
    return visit(root_, 0, search) != End::Broken;
}

IndexWalk::End IndexWalk::visit(SnapshotPages::Number number, int depth, Search& search) {
    if (number == 1 || depth > BTreePage::deepest) return End::Broken;
    BTreePage const page(pages_.kept(number), pages_.usableSize(), BTreePage::ofIndex);
    if (!page.isSound()) return End::Broken;
    auto const first = firstCellNot(page, [&](std::size_t at) { return isBefore(page, at, search); });
    if (!first) return End::Broken;
    for (auto at = *first;; ++at) {
        if (page.isInner()) {
            if (at < page.count() && !page.cell(at)) return End::Broken;
            if (auto const end = visit(page.below(at), depth + 1, search); end != End::OfPage) return end;
        }
        if (at == page.count()) return End::OfPage;
        Entry const entry(page, at);
        auto const order = entry.compared(search.sought);
        if (!order || *order < 0) return End::Broken;
        if (*order > 0) return End::OfSearch;
        auto const key = entry.key();
        if (!key || *key <= search.previous) return End::Broken;
        search.previous = *key;
        if (!search.take(*key)) return End::OfSearch;
    }
}

} // namespace Tessarin::SQLite
