#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Value.h"
#include <array>
#include <compare>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

/// A universally unique identifier: sixteen bytes, a value.
class TESSARIN_API NSUUID {
public:
    using Bytes = std::array<std::uint8_t, 16>;

    /// A new random one (version 4). Any thread.
    static NSUUID UUID();
    /// Reads "E621E1F8-C36C-495A-93FC-0C247A3E6E5F" in either case; absent for anything else.
    static std::optional<NSUUID> UUIDWithString(std::string_view text);
    explicit constexpr NSUUID(Bytes const& bytes) noexcept : bytes_(bytes) {}

    constexpr Bytes const& bytes() const noexcept { return bytes_; }
    /// The text form, in upper case.
    std::string UUIDString() const;
    std::string description() const { return UUIDString(); }

    friend bool operator==(NSUUID const&, NSUUID const&) = default;
    friend auto operator<=>(NSUUID const&, NSUUID const&) = default;
    friend TESSARIN_API std::ostream& operator<<(std::ostream& out, NSUUID const& uuid);

private:
    Bytes bytes_;
};

template <> struct ValueTraits<NSUUID> {
    static Value into(NSUUID const& uuid) { return Value::uuid(uuid.bytes()); }
    static std::optional<NSUUID> from(Value const& value) {
        return value.kind() == Value::Kind::UUID ? std::optional(NSUUID{value.uuidBytes()}) : std::nullopt;
    }
};

} // namespace Tessarin

template <> struct std::hash<Tessarin::NSUUID> {
    std::size_t operator()(Tessarin::NSUUID const& uuid) const noexcept {
        return std::hash<std::string_view>{}({reinterpret_cast<char const*>(uuid.bytes().data()), uuid.bytes().size()});
    }
};
