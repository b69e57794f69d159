#pragma once
#include "Tessarin/platform/sqlite/BTreePage.h"
#include <string_view>

namespace Tessarin::SQLite {

/// Finds records in an index of one column, which compares texts by their bytes, ascending: see `TableWalk`.
class TESSARIN_API IndexWalk {
public:
    /// What a record has in the index's column, converted as the column would.
    struct Sought {
        enum class Kind : std::uint8_t { Integer = 1, Text, Bytes };
        Kind kind{};
        std::int64_t integer = 0;
        std::string_view content = {}; // a text or bytes
    };

    IndexWalk(SnapshotPages& pages, SnapshotPages::Number root) : pages_(pages), root_(root) {}

    /// Whether it can look for that: long texts go on in other pages.
    bool canFind(Sought const& sought) const noexcept;
    /// Hands over the keys of the records that have it, in their order, until `take` answers false. Answers false, too, where the
    /// pages are not as those of such an index should be, or hold what such a column should not. It keeps the pages that it reads,
    /// see `SnapshotPages::trim`.
    bool find(Sought const& sought, FunctionRef<bool(std::int64_t key)> take);

private:
    enum class End { OfPage, OfSearch, Broken };
    struct Search;
    static std::optional<bool> isBefore(BTreePage const& page, std::size_t at, Search const& search);
    End visit(SnapshotPages::Number number, int depth, Search& search);

    SnapshotPages& pages_;
    SnapshotPages::Number const root_;
};

} // namespace Tessarin::SQLite
