#pragma once
#include "Tessarin/Export.h"
#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

namespace Tessarin {

/// The pages of a database file, as far as one must know them to find a table's records when the way to them is broken: pages
/// that hold records, those that only lead to them, and those that are free. The format is described at
/// sqlite.org/fileformat2.html.
class TESSARIN_API SQLiteSalvagePages {
public:
    using Page = std::uint32_t; // from 1

    /// Throws ErrorException when the file cannot be opened; what cannot be read counts as zeros.
    explicit SQLiteSalvagePages(std::string const& path);
    ~SQLiteSalvagePages();
    SQLiteSalvagePages(SQLiteSalvagePages const&) = delete;
    SQLiteSalvagePages& operator=(SQLiteSalvagePages const&) = delete;

    /// What can be reached from the first page of a table.
    struct Tree {
        std::vector<Page> leaves; // in the order of their keys
        bool isWhole = true;
    };
    Tree treeAt(Page root);
    /// Pages with records that no `treeAt` has reached so far and that are not free.
    std::vector<Page> strays() const;
    /// SQLite's serial types of the columns of a page's first record; empty when it has none.
    std::vector<std::uint64_t> firstRecord(Page leaf) const;

private:
    enum class Kind : std::uint8_t { Inner = 5, Leaf = 13 };
    unsigned char byte(std::size_t at) const;
    std::uint64_t number(std::size_t at, int bytes) const;
    std::uint64_t variable(std::size_t& at) const;
    std::size_t startOf(Page page) const noexcept { return (page - 1) * pageSize_; }
    bool isKind(Page page, Kind kind) const;
    void visit(Page page, Tree& tree);
    void findFree();

    int const file_;
    mutable std::string part_; // of the file, the one last asked for
    mutable std::size_t partNumber_ = SIZE_MAX;
    std::size_t pageSize_ = 512; // the least there is, until the header is read
    Page count_ = 0;
    std::unordered_set<Page> seen_; // reached
    std::unordered_set<Page>
        free_; // as the list of free pages says, which may be damaged itself: a table that leads to one counts more
};

} // namespace Tessarin
