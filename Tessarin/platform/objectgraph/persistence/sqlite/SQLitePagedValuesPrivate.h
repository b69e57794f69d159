#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"
#include "Tessarin/platform/sqlite/TableWalk.h"

namespace Tessarin {

/// What a page holds of a record, by the place of a column among those that SQLiteRowDecoder reads: id and version first, then the
/// entity's number where there is one. `places` says where they stand in the table.
class PagedValues {
public:
    PagedValues(SQLite::TableRecord const& record, std::span<std::size_t const> places) : record_(record), places_(places) {}

    /// Whether it has all columns, and numbers in the first ones: what else may be asked for.
    bool isRecord(bool hasEntity, std::size_t lastPlace) const {
        return record_.columnCount() > lastPlace && record_.kindOf(places_[1]) == Kind::Integer &&
               (!hasEntity || record_.kindOf(places_[2]) == Kind::Integer);
    }
    RecordKey key() const { return record_.key(); }
    std::uint32_t version() const { return versionFrom(key(), record_.integer(places_[1])); }
    std::int64_t entity() const { return record_.integer(places_[2]); }
    bool readInteger(int column, std::int64_t& number) const {
        auto const place = placeOf(column);
        auto const kind = record_.kindOf(place);
        if (kind != Kind::Integer) return isNull(kind);
        number = record_.integer(place);
        return true;
    }
    /// SQLite keeps whole numbers as integers.
    bool readReal(int column, double& number) const {
        auto const place = placeOf(column);
        auto const kind = record_.kindOf(place);
        if (kind != Kind::Real && kind != Kind::Integer) return isNull(kind);
        number = kind == Kind::Real ? record_.real(place) : static_cast<double>(record_.integer(place));
        return true;
    }
    bool readContent(int column, CellType type, std::string_view& content) const {
        auto const place = placeOf(column);
        auto const kind = record_.kindOf(place);
        content = {""};
        if (kind != (type == CellType::Text ? Kind::Text : Kind::Bytes)) return isNull(kind);
        content = record_.content(place);
        return true;
    }
    /// Whether a value that was asked for is of another kind than its column should hold.
    bool isOdd() const noexcept { return isOdd_; }

private:
    using Kind = SQLite::TableRecord::Kind;
    std::size_t placeOf(int column) const { return places_[static_cast<std::size_t>(column)]; }
    bool isNull(Kind kind) const noexcept {
        isOdd_ = isOdd_ || kind != Kind::Null;
        return false;
    }

    SQLite::TableRecord const& record_;
    std::span<std::size_t const> places_;
    mutable bool isOdd_ = false;
};

} // namespace Tessarin
