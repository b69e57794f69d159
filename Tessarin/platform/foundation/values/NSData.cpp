#include "Tessarin/platform/foundation/values/NSData.h"

#include <ostream>

namespace Tessarin {

NSData::NSData() : NSData(std::vector<std::byte>{}) {}
NSData::NSData(std::vector<std::byte> bytes) : value_(Value::data(std::move(bytes))) {}
NSData NSData::dataWithBytes(std::span<std::byte const> bytes) { return NSData{std::vector(bytes.begin(), bytes.end())}; }
NSData NSData::dataWithText(std::string_view text) { return dataWithBytes(std::as_bytes(std::span{text})); }

std::optional<NSData> ValueTraits<NSData>::from(Value const& value) {
    if (value.kind() != Value::Kind::Data) return {};
    NSData data;
    data.value_ = value;
    return data;
}

std::ostream& operator<<(std::ostream& out, NSData const& data) { return out << data.description(); }

std::string NSData::description() const { return value_.description(); }

} // namespace Tessarin
