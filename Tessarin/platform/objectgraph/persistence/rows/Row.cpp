#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"

#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

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
    return isHeapCell(layout_->cells()[cell].type) ? text(cell) == other.text(cell) : integer(cell) == other.integer(cell);
}

void throwDamaged(NSEntityDescription const& found, NSEntityDescription const& wanted, RecordKey key) {
    throw ErrorException(storeError(StoreErrorCode::StoreDamaged, "The store is damaged: the record " + std::to_string(key) +
                                                                      " is a " + found.name() + " where a " + wanted.name() +
                                                                      " belongs."));
}

std::uint32_t versionFrom(RecordKey key, std::int64_t stored) {
    if (key > 0 && stored >= 0 && stored <= Row::mostVersion) return static_cast<std::uint32_t>(stored);
    throw ErrorException(storeError(StoreErrorCode::StoreDamaged, "The store is damaged: it holds a record with the key " +
                                                                      std::to_string(key) + " and the version " +
                                                                      std::to_string(stored) + "."));
}

std::span<std::byte const> Row::bytes(std::size_t cell) const noexcept {
    auto const content = text(cell);
    return {reinterpret_cast<std::byte const*>(content.data()), content.size()};
}

} // namespace Tessarin
