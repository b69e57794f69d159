#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSalvagePagesPrivate.h"

#include "Tessarin/platform/foundation/values/NSError.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessarin {

SQLiteSalvagePages::SQLiteSalvagePages(std::string const& path) : file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    struct stat status {};
    if (file_ < 0 || ::fstat(file_, &status) != 0) throw ErrorException(NSError::errorWithErrno(errno, path));
    auto const size = number(16, 2) == 1 ? 65536 : number(16, 2);
    if (size < pageSize_) return; // no page can be told
    pageSize_ = size;
    partNumber_ = SIZE_MAX;
    count_ = static_cast<Page>(static_cast<std::size_t>(status.st_size) / pageSize_);
    seen_.insert(1); // SQLite's own table
    findFree();
}

SQLiteSalvagePages::~SQLiteSalvagePages() { ::close(file_); }

unsigned char SQLiteSalvagePages::byte(std::size_t at) const {
    if (auto const wanted = at / pageSize_; wanted != partNumber_) {
        part_.assign(pageSize_, '\0');
        static_cast<void>(!::pread(file_, part_.data(), pageSize_, static_cast<off_t>(wanted * pageSize_)));
        partNumber_ = wanted;
    }
    return static_cast<unsigned char>(part_[at % pageSize_]);
}

std::uint64_t SQLiteSalvagePages::number(std::size_t at, int bytes) const { // big-endian
    std::uint64_t value = 0;
    for (int each = 0; each < bytes; ++each) value = value << 8 | byte(at++);
    return value;
}

std::uint64_t SQLiteSalvagePages::variable(std::size_t& at) const {
    std::uint64_t value = 0;
    for (int each = 0; each < 9; ++each) {
        auto const next = byte(at++);
        if (each == 8) return value << 8 | next;
        value = value << 7 | (next & 0x7FU);
        if (next < 0x80) break;
    }
    return value;
}

bool SQLiteSalvagePages::isKind(Page page, Kind kind) const {
    return page > 1 && page <= count_ && byte(startOf(page)) == static_cast<unsigned char>(kind);
}

void SQLiteSalvagePages::findFree() {
    for (auto trunk = static_cast<Page>(number(32, 4)); trunk > 1 && trunk <= count_ && free_.insert(trunk).second;) {
        auto const start = startOf(trunk);
        auto const held = std::min<std::uint64_t>(number(start + 4, 4), pageSize_ / 4 - 2);
        for (std::uint64_t at = 0; at < held; ++at) free_.insert(static_cast<Page>(number(start + 8 + at * 4, 4)));
        trunk = static_cast<Page>(number(start, 4));
    }
}

SQLiteSalvagePages::Tree SQLiteSalvagePages::treeAt(Page root) {
    Tree tree;
    visit(root, tree);
    return tree;
}

// A page is visited once, so a circle ends; a sound tree is a few levels deep, and no deeper one is followed.
void SQLiteSalvagePages::visit(Page root, Tree& tree) {
    struct Open {
        Page page;
        int depth;
    };
    static constexpr int deepest = 20;
    for (std::vector<Open> open{{root, 0}}; !open.empty();) {
        auto const [page, depth] = open.back();
        open.pop_back();
        bool const isLeaf = isKind(page, Kind::Leaf);
        if (depth > deepest || (!isLeaf && !isKind(page, Kind::Inner)) || !seen_.insert(page).second) {
            tree.isWhole = false;
            continue;
        }
        if (isLeaf) {
            tree.leaves.push_back(page);
            continue;
        }
        auto const start = startOf(page);
        auto const cells = std::min<std::uint64_t>(number(start + 3, 2), (pageSize_ - 12) / 2);
        open.push_back({static_cast<Page>(number(start + 8, 4)), depth + 1});
        for (auto at = cells; at > 0; --at)
            open.push_back({static_cast<Page>(number(start + number(start + 12 + (at - 1) * 2, 2), 4)), depth + 1});
    }
}

std::vector<SQLiteSalvagePages::Page> SQLiteSalvagePages::strays() const {
    std::vector<Page> found;
    for (Page page = 2; page <= count_; ++page)
        if (isKind(page, Kind::Leaf) && !seen_.contains(page) && !free_.contains(page)) found.push_back(page);
    return found;
}

std::vector<std::uint64_t> SQLiteSalvagePages::firstRecord(Page leaf) const {
    std::vector<std::uint64_t> types;
    auto const start = startOf(leaf);
    if (number(start + 3, 2) == 0) return types;
    auto at = start + number(start + 8, 2);
    variable(at); // the record's size
    variable(at); // its key
    auto const header = at;
    auto const end = header + std::min<std::uint64_t>(variable(at), pageSize_);
    while (at < end) types.push_back(variable(at));
    return types;
}

} // namespace Tessarin
