#pragma once
#include <cstdint>
#include <memory> // std::hash
#include <type_traits>

namespace Tessarin {

/// Base of an enumeration with operations: `struct DateMonth : Enumeration<DateMonth>` with `static const` cases.
/// Compared and hashed by its raw value; switch on `rawValue()`.
template <class Self> class Enumeration {
public:
    constexpr std::int64_t rawValue() const noexcept { return rawValue_; }
    friend constexpr bool operator==(Enumeration const&, Enumeration const&) noexcept = default;

protected:
    constexpr explicit Enumeration(std::int64_t rawValue) noexcept : rawValue_(rawValue) {}

private:
    std::int64_t rawValue_;
};

template <class Self> struct EnumerationHash {
    std::size_t operator()(Self const& value) const noexcept { return std::hash<std::int64_t>{}(value.rawValue()); }
};

} // namespace Tessarin

/// Hashing of every enumeration by its raw value.
template <class Self>
    requires std::is_base_of_v<Tessarin::Enumeration<Self>, Self>
struct std::hash<Self> : Tessarin::EnumerationHash<Self> {};
