#include "Tessarin/platform/objectgraph/persistence/Row.h"

#include "Tessarin/platform/objectgraph/persistence/RowCache.h"

#include <algorithm>

namespace Tessarin {
namespace {

std::array<std::uint8_t, 16> uuidFrom(std::string_view bytes) {
    std::array<std::uint8_t, 16> uuid{};
    std::memcpy(uuid.data(), bytes.data(), std::min(bytes.size(), uuid.size()));
    return uuid;
}

} // namespace

Value Row::value(std::size_t cell) const {
    if (!isPresent(cell)) return {};
    auto const* attribute = layout_->cells()[cell].property->asAttribute();
    if (!attribute) return {};
    switch (attribute->attributeType()) {
    case NSAttributeType::Boolean: return integer(cell) != 0;
    case NSAttributeType::Integer16:
    case NSAttributeType::Integer32:
    case NSAttributeType::Integer64: return integer(cell);
    case NSAttributeType::Double: return real(cell);
    case NSAttributeType::Float: return static_cast<float>(real(cell));
    case NSAttributeType::Date: return Value::date(real(cell));
    case NSAttributeType::String: return text(cell);
    case NSAttributeType::URI: return Value::url(text(cell));
    case NSAttributeType::Decimal: return Decimal::fromText(text(cell));
    case NSAttributeType::BinaryData: return Value::data(bytes(cell));
    case NSAttributeType::UUID: return Value::uuid(uuidFrom(text(cell)));
    default: return {};
    }
}

bool Row::cellEquals(std::size_t cell, Row const& other) const noexcept {
    if (isPresent(cell) != other.isPresent(cell)) return false;
    if (!isPresent(cell)) return true;
    auto const type = layout_->cells()[cell].type;
    if (type == CellType::Text || type == CellType::Bytes) return text(cell) == other.text(cell);
    return cells()[cell] == other.cells()[cell];
}

void Row::destroy() noexcept {
    if (references_.load(std::memory_order_relaxed) & cached) layout_->space().cache().drop(*this);
    this->~Row();
    ::operator delete(this);
}

} // namespace Tessarin
