#pragma once
#include "Tessarin/platform/objectgraph/model/NSAttributeDescription.h"
#include <functional>
#include <optional>

namespace Tessarin {

inline std::uint64_t valueHash(std::string_view text) { return std::hash<std::string_view>{}(text); }
inline std::uint64_t valueHash(std::int64_t number) { return std::hash<std::int64_t>{}(number); }

/// For look-ups by equality: equal values have equal hashes. Absent for a value that is not looked up among values of that type.
inline std::optional<std::uint64_t> valueHash(Value const& value, NSAttributeType type) {
    bool const isWhole =
        type == NSAttributeType::Integer16 || type == NSAttributeType::Integer32 || type == NSAttributeType::Integer64;
    if (type == NSAttributeType::String && value.kind() == Value::Kind::Text) return valueHash(value.text());
    if (isWhole && value.kind() == Value::Kind::Integer) return valueHash(value.integer());
    return {};
}

} // namespace Tessarin
