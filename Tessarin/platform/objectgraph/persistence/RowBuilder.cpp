#include "Tessarin/platform/objectgraph/persistence/RowBuilder.h"

#include "Tessarin/platform/runtime/Decimal.h"

#include <algorithm>

namespace Tessarin {
namespace {

bool isHeld(CellType type) { return type == CellType::Text || type == CellType::Bytes; }

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

void RowBuilder::begin(Row const& other, std::uint32_t version) {
    begin(other.layout(), other.key(), version);
    for (std::size_t cell = 0; cell < layout_->cells().size(); ++cell) setCell(cell, other);
}

void RowBuilder::setText(std::size_t cell, std::string_view text) noexcept {
    texts_[cell] = text;
    presence_[cell / 64] |= 1ULL << (cell % 64);
}

void RowBuilder::setCell(std::size_t cell, Row const& from) noexcept {
    if (!from.isPresent(cell))
        setAbsent(cell);
    else if (isHeld(layout_->cells()[cell].type))
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

RowRef RowBuilder::finish() {
    auto const cells = layout_->cells();
    auto const words = presence_.size();
    std::size_t size = sizeof(Row) + (words + cells.size()) * sizeof(std::uint64_t);
    auto const isThere = [&](std::size_t cell) { return (presence_[cell / 64] >> (cell % 64)) & 1; };
    std::size_t heap = 0;
    for (std::size_t cell = 0; cell < cells.size(); ++cell)
        if (isHeld(cells[cell].type) && isThere(cell)) heap += texts_[cell].size();

    auto* memory = static_cast<char*>(::operator new(size + heap));
    auto* row = ::new (memory) Row(*layout_, key_, version_);
    auto* bits = reinterpret_cast<std::uint64_t*>(memory + sizeof(Row));
    std::copy(presence_.begin(), presence_.end(), bits);
    bits += words;
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        if (!isThere(cell)) {
            bits[cell] = 0;
        } else if (isHeld(cells[cell].type)) {
            auto const text = texts_[cell];
            if (!text.empty()) std::memcpy(memory + size, text.data(), text.size());
            bits[cell] = static_cast<std::uint64_t>(size) << 32 | text.size();
            size += text.size();
        } else {
            bits[cell] = cells_[cell];
        }
    }
    return RowRef::adopt(row);
}

RowRef mergedRow(Row const& base, Row const& mine, Row const& theirs) {
    RowBuilder builder;
    builder.begin(theirs, std::max(mine.version(), theirs.version() + 1));
    for (std::size_t cell = 0; cell < base.layout().cells().size(); ++cell)
        if (!mine.cellEquals(cell, base)) builder.setCell(cell, mine);
    return builder.finish();
}

} // namespace Tessarin
