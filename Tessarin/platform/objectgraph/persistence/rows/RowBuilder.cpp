#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/RowBlockWriterPrivate.h"
#include "Tessarin/platform/runtime/Decimal.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace Tessarin {
namespace {

// The low bytes of a number come first, so that a narrow cell takes just those.
static_assert(std::endian::native == std::endian::little);

} // namespace

void RowBuilder::begin(RowLayout const& layout, RecordKey key, std::uint32_t version) {
    layout_ = &layout;
    key_ = key;
    version_ = version;
    auto const count = layout.cells().size();
    presence_.assign((count + 63) / 64, 0);
    if (cells_.size() < count) {
        cells_.resize(count);
        texts_.resize(count);
    }
    kept_.clear();
}

void RowBuilder::begin(Row const& other, std::uint32_t version) { begin(other, other.key(), version); }

void RowBuilder::begin(Row const& other, RecordKey key, std::uint32_t version) {
    begin(other.layout(), key, version);
    for (std::size_t cell = 0; cell < layout_->cells().size(); ++cell) setCell(cell, other);
}

void RowBuilder::setText(std::size_t cell, std::string_view text) noexcept {
    texts_[cell] = text;
    presence_[cell / 64] |= 1ULL << (cell % 64);
}

void RowBuilder::setCell(std::size_t cell, Row const& from) noexcept {
    if (!from.isPresent(cell))
        setAbsent(cell);
    else if (isHeapCell(layout_->cells()[cell].type))
        setText(cell, from.text(cell));
    else
        setInteger(cell, from.integer(cell));
}

std::string_view RowBuilder::keep(std::string_view text) { return *kept_.emplace_back(std::make_unique<std::string>(text)); }

bool RowBuilder::setValue(std::size_t cell, Value const& value) {
    using Kind = Value::Kind;
    setAbsent(cell);
    if (value.isAbsent()) return true;
    auto const kind = value.kind();
    switch (layout_->cells()[cell].property->asAttribute()->attributeType()) {
    case NSAttributeType::Boolean:
        if (value.isNumber()) setInteger(cell, value.boolean());
        return value.isNumber();
    case NSAttributeType::Integer16:
    case NSAttributeType::Integer32:
    case NSAttributeType::Integer64:
        if (value.isNumber()) setInteger(cell, value.integer());
        return value.isNumber();
    case NSAttributeType::Float:
        if (value.isNumber()) setReal(cell, static_cast<float>(value.number()));
        return value.isNumber();
    case NSAttributeType::Double:
        if (value.isNumber()) setReal(cell, value.number());
        return value.isNumber();
    case NSAttributeType::Date:
        if (kind == Kind::Date) setReal(cell, value.dateSeconds());
        return kind == Kind::Date;
    case NSAttributeType::String:
        if (kind == Kind::Text) setText(cell, value.text());
        return kind == Kind::Text;
    case NSAttributeType::URI:
        if (kind == Kind::URL) setText(cell, value.urlText());
        return kind == Kind::URL;
    case NSAttributeType::Decimal:
        if (kind != Kind::Decimal && !value.isNumber()) return false;
        setText(cell, keep(value.decimal().text()));
        return true;
    case NSAttributeType::BinaryData:
        if (kind == Kind::Data) setBytes(cell, value.bytes());
        return kind == Kind::Data;
    case NSAttributeType::UUID: {
        if (kind != Kind::UUID) return false;
        auto const uuid = value.uuidBytes();
        setText(cell, keep({reinterpret_cast<char const*>(uuid.data()), uuid.size()}));
        return true;
    }
    default: return false;
    }
}

RowBuilder::Content RowBuilder::measured() const noexcept {
    Content content;
    auto const& cells = layout_->cells();
    auto const& places = layout_->packing(false).places;
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        if (!isThere(cell)) continue;
        if (isHeapCell(cells[cell].type))
            content.heap += texts_[cell].size();
        else
            content.isWide = content.isWide || !places[cell].holds(static_cast<std::int64_t>(cells_[cell]));
    }
    return content;
}

RowRef RowBuilder::finish(RowBlockWriter* blocks) {
    auto const content = measured();
    if (!blocks || content.isWide || sizeOf(content) > RowBlockWriter::longest) return alone(content, nullptr);
    write(blocks->room(sizeOf(content)).row, false);
    return blocks->commit(*layout_, key_, version_, sizeOf(content));
}

RowRef RowBuilder::finishOn(RowRef basis) { return alone(measured(), std::move(basis)); }

RowRef RowBuilder::alone(Content const& content, RowRef basis) const {
    auto row = RowBlockWriter::alone(*layout_, key_, version_, content.isWide, sizeOf(content), std::move(basis));
    write(reinterpret_cast<char*>(const_cast<Row*>(row.get())), content.isWide);
    return row;
}

/// Everything behind the header.
void RowBuilder::write(char* row, bool isWide) const noexcept {
    auto const& packing = layout_->packing(isWide);
    auto const cells = layout_->cells();
    std::memset(row + sizeof(Row), 0, packing.heap - sizeof(Row));
    auto end = packing.heap;
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        auto const& place = packing.places[cell];
        if (isThere(cell)) packing.setPresent(row, cell);
        if (isHeapCell(cells[cell].type)) {
            if (isThere(cell) && !texts_[cell].empty()) {
                std::memcpy(row + end, texts_[cell].data(), texts_[cell].size());
                end += static_cast<std::uint32_t>(texts_[cell].size());
            }
            std::memcpy(row + place.offset, &end, sizeof end);
        } else if (isThere(cell)) {
            std::memcpy(row + place.offset, &cells_[cell], place.width);
        }
    }
}

namespace {

void merge(RowBuilder& builder, Row const& base, Row const& mine, Row const& theirs) {
    builder.begin(theirs, std::max(mine.version(), theirs.version() + 1));
    for (std::size_t cell = 0; cell < base.layout().cells().size(); ++cell)
        if (!mine.cellEquals(cell, base)) builder.setCell(cell, mine);
}

} // namespace

RowRef mergedRow(Row const& base, Row const& mine, Row const& theirs) {
    RowBuilder builder;
    merge(builder, base, mine, theirs);
    return builder.finish();
}

RowRef shownRow(Row const& base, Row const& unsaved, RowRef const& saved) {
    RowBuilder builder;
    merge(builder, base, *saved, unsaved);
    return builder.finishOn(saved);
}

} // namespace Tessarin
