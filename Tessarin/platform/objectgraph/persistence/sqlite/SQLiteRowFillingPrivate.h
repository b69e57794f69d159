#pragma once
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteRowDecoderPrivate.h"
#include <algorithm>
#include <array>
#include <cstring>

// How a decoder makes rows of values, whether these come from a statement or from a page.
namespace Tessarin {

template <class Values> SQLiteRowDecoder::Plan const* SQLiteRowDecoder::planOf(Values const& values) const noexcept {
    if (!hasEntityColumn_) return &plans_.front().second;
    auto const number = values.entity();
    for (auto const& [known, plan] : plans_)
        if (known == number) return &plan;
    return nullptr;
}

template <class Values>
RowRef SQLiteRowDecoder::decoded(Values const& values, Plan const& plan, RecordKey key, std::uint32_t version,
                                 RowBlockWriter* blocks) {
    builder_.begin(*plan.layout, key, version);
    for (auto const& [cell, column, type, place] : plan.cells) {
        if (isHeapCell(type)) {
            if (std::string_view content; values.readContent(column, type, content)) builder_.setText(cell, content);
        } else if (type == CellType::Real) {
            if (double number = 0; values.readReal(column, number)) builder_.setReal(cell, number);
        } else if (std::int64_t number = 0; values.readInteger(column, number)) {
            builder_.setInteger(cell, number);
        }
    }
    return builder_.finish(blocks);
}

/// Writes the values right into the open block; false when they do not fit there.
template <class Values>
bool SQLiteRowDecoder::packInto(RowBlockWriter::Room room, Values const& values, Plan const& plan, std::size_t& size) {
    auto const& packing = plan.layout->packing(false);
    auto* const row = room.row;
    std::memset(row + sizeof(Row), 0, packing.heap - sizeof(Row));
    auto end = packing.heap;
    for (auto const& [cell, column, type, place] : plan.cells) {
        if (isHeapCell(type)) {
            std::string_view content;
            bool const isThere = values.readContent(column, type, content);
            if (content.size() > room.size - end) return false;
            std::memcpy(row + end, content.data(), content.size());
            end += static_cast<std::uint32_t>(content.size());
            std::memcpy(row + place.offset, &end, sizeof end);
            if (!isThere) continue;
        } else if (type == CellType::Real) {
            double number = 0;
            if (!values.readReal(column, number)) continue;
            std::memcpy(row + place.offset, &number, sizeof number);
        } else {
            std::int64_t number = 0;
            if (!values.readInteger(column, number)) continue;
            if (!place.hold(row, number)) return false;
        }
        packing.setPresent(row, cell);
    }
    size = end;
    return true;
}

/// A row that stands alone.
template <class Values>
RowRef SQLiteRowDecoder::single(Values const& values, Plan const& plan, RecordKey key, std::uint32_t version) {
    alignas(Row) std::array<char, usualSize> packed;
    std::size_t size = 0;
    bool const isShort =
        plan.layout->packing(false).heap < packed.size() && packInto({packed.data(), packed.size()}, values, plan, size);
    if (!isShort) return decoded(values, plan, key, version, nullptr);
    auto row = RowBlockWriter::alone(*plan.layout, key, version, false, size);
    std::memcpy(reinterpret_cast<char*>(const_cast<Row*>(row.get())) + sizeof(Row), packed.data() + sizeof(Row),
                size - sizeof(Row));
    return row;
}

/// Packs one record after the other behind those that a list has.
template <class Values> class SQLiteRowDecoder::Filling {
public:
    Filling(SQLiteRowDecoder& decoder, std::vector<RowRef>& rows) : decoder_(decoder), rows_(rows), known_(rows.size()) {}
    Filling(Filling const&) = delete;
    Filling& operator=(Filling const&) = delete;
    ~Filling() { decoder_.blocks_.close(); }

    /// False, and nothing is added, for values that cannot be understood.
    bool add(Values const& values) {
        auto const* plan = decoder_.planOf(values);
        if (!plan) return true;
        auto const key = values.key();
        auto const version = values.version();
        auto& blocks = decoder_.blocks_;
        auto const least = plan->layout->packing(false).heap + usualText;
        std::size_t size = 0;
        if (least <= RowBlockWriter::longest && packInto(blocks.room(least), values, *plan, size)) {
            if (values.isOdd()) return false;
            rows_.push_back(blocks.commit(*plan->layout, key, version, size));
        } else {
            auto row = decoder_.decoded(values, *plan, key, version, &blocks);
            if (values.isOdd()) return false;
            rows_.push_back(std::move(row));
        }
        if (rows_.size() - known_ == run) enterIntoCache();
        return true;
    }
    bool finish() {
        enterIntoCache();
        return areNew_;
    }

private:
    static constexpr std::size_t run = 256; // rows that go into the cache together

    void enterIntoCache() {
        auto const fresh = std::span(rows_).subspan(known_);
        areNew_ = decoder_.space_.cache().addAll(fresh, decoder_.asOf_) == 0 && areNew_;
        for (auto const& row : fresh) requireSameTree(row->entity(), decoder_.plans_.front().second.layout->entity(), row->key());
        known_ = rows_.size();
    }

    SQLiteRowDecoder& decoder_;
    std::vector<RowRef>& rows_;
    std::size_t known_;
    bool areNew_ = true;
};

} // namespace Tessarin
