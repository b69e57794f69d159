#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"
#include <bit>
#include <vector>

namespace Tessarin {

class RowBlockWriter;

/// Makes rows, one after another. Every cell starts absent; texts and bytes are only looked at until `finish`, which
/// copies them once, into the row.
///
///     builder.begin(layout, key, Row::firstVersion);
///     builder.setText(0, "Emma");
///     RowRef row = builder.finish();
class TESSARIN_API RowBuilder {
public:
    void begin(RowLayout const& layout, RecordKey key, std::uint32_t version);
    /// Starts with the cells of `other`, whose layout may be that of a sub- or super-entity.
    void begin(Row const& other, std::uint32_t version);
    /// The same for the record's present key: `other` may be older than its permanent one.
    void begin(Row const& other, RecordKey key, std::uint32_t version);

    void setAbsent(std::size_t cell) noexcept { presence_[cell / 64] &= ~(1ULL << (cell % 64)); }
    void setInteger(std::size_t cell, std::int64_t value) noexcept { put(cell, static_cast<std::uint64_t>(value)); }
    void setReal(std::size_t cell, double value) noexcept { put(cell, std::bit_cast<std::uint64_t>(value)); }
    /// A key of 0 is absent.
    void setReference(std::size_t cell, RecordKey key) noexcept { key == 0 ? setAbsent(cell) : setInteger(cell, key); }
    void setText(std::size_t cell, std::string_view text) noexcept;
    void setBytes(std::size_t cell, std::span<std::byte const> bytes) noexcept {
        setText(cell, {reinterpret_cast<char const*>(bytes.data()), bytes.size()});
    }
    /// Copies one cell of a row of the same layout.
    void setCell(std::size_t cell, Row const& from) noexcept;
    /// An attribute's value, converted to how its type is kept. False when the value is of a wrong kind for the attribute;
    /// the cell is then absent. The value must live until `finish` (decimals and UUIDs are copied).
    bool setValue(std::size_t cell, Value const& value);

    /// With `blocks`, the row shares a block with others; else it stands alone.
    RowRef finish(RowBlockWriter* blocks = nullptr);
    /// A row that shows what is not saved, on top of another one.
    RowRef finishOn(RowRef basis);

private:
    struct Content { // of the row that is being made
        bool isWide = false;
        std::size_t heap = 0;
    };
    Content measured() const noexcept;
    std::size_t sizeOf(Content const& content) const noexcept { return layout_->packing(content.isWide).heap + content.heap; }
    RowRef alone(Content const& content, RowRef basis) const;
    void write(char* row, bool isWide) const noexcept;
    bool isThere(std::size_t cell) const noexcept { return (presence_[cell / 64] >> (cell % 64)) & 1; }
    void put(std::size_t cell, std::uint64_t bits) noexcept {
        cells_[cell] = bits;
        presence_[cell / 64] |= 1ULL << (cell % 64);
    }
    std::string_view keep(std::string_view text);

    RowLayout const* layout_ = nullptr;
    RecordKey key_ = 0;
    std::uint32_t version_ = 0;
    std::vector<std::uint64_t> presence_;
    std::vector<std::uint64_t> cells_;
    std::vector<std::string_view> texts_; // by cell, for text and bytes
    std::vector<std::unique_ptr<std::string>> kept_;
};

/// The version of a row that shows a record which a context has inserted and not saved: whatever is saved is newer.
inline constexpr std::uint32_t unsavedVersion = 0;
/// Whether a row shows such a record, or what was changed on top of one.
inline bool showsNewRecord(Row const& row) noexcept { return row.savedVersion() == unsavedVersion; }

/// `mine` was made from `base`; gives `mine`'s changes against `base` applied to `theirs`, with a version above both.
TESSARIN_API RowRef mergedRow(Row const& base, Row const& mine, Row const& theirs);
/// `unsaved` was made from `base`, and so was `saved`, whose changes count more: a row that shows both, on top of `saved`.
TESSARIN_API RowRef shownRow(Row const& base, Row const& unsaved, RowRef const& saved);

} // namespace Tessarin
