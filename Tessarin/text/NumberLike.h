#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Value.h"
#include <concepts>
#include <cstdint>
#include <optional>
#include <string_view>

namespace Tessarin {

/// What can be read as a whole number; absent when there is none, or none of 64 bits.
class TESSARIN_API IntLike {
public:
    virtual std::optional<std::int64_t> integer() const = 0;

protected:
    IntLike() = default;
    ~IntLike() = default;
};

/// What can be read as a number of single precision; absent when there is none, or it is too large.
class TESSARIN_API FloatLike {
public:
    virtual std::optional<float> floatNumber() const = 0;

protected:
    FloatLike() = default;
    ~FloatLike() = default;
};

/// What can be read as a number of double precision; absent when there is none.
class TESSARIN_API DoubleLike {
public:
    virtual std::optional<double> number() const = 0;

protected:
    DoubleLike() = default;
    ~DoubleLike() = default;
};

namespace detail {
// Of a Value itself, and not of all that might become one.
TESSARIN_API std::optional<std::int64_t> integerOf(Value const& value);
TESSARIN_API std::optional<double> doubleOf(Value const& value);
TESSARIN_API std::optional<float> floatOf(Value const& value);
} // namespace detail

// Readings of what is no class of that kind. A whole number of another is that without its fraction; absent for infinity, for
// what is no number and beyond 64 bits. A float of a double is the nearest; infinity stays infinity. A text reads as a number
// when it is one from end to end, but for blanks around it: "12", " +1.5e3\n", "-inf"; "", "12 m", "0x10" and what its type
// cannot hold are absent. Of values, numbers and decimals are read as numbers, texts as texts, all others not at all.
template <std::integral T> constexpr std::optional<std::int64_t> integerOf(T value) noexcept {
    if (std::unsigned_integral<T> && static_cast<std::uint64_t>(value) > std::uint64_t{INT64_MAX}) return {};
    return static_cast<std::int64_t>(value);
}
constexpr std::optional<std::int64_t> integerOf(double value) noexcept {
    constexpr double limit = 9223372036854775808.0;
    return value >= -limit && value < limit ? std::optional(static_cast<std::int64_t>(value)) : std::nullopt;
}
TESSARIN_API std::optional<std::int64_t> integerOf(std::string_view text) noexcept;
template <std::same_as<Value> T> std::optional<std::int64_t> integerOf(T const& value) { return detail::integerOf(value); }
template <std::convertible_to<std::string_view> T> std::optional<std::int64_t> integerOf(T const& text) noexcept {
    return integerOf(std::string_view{text});
}
inline std::optional<std::int64_t> integerOf(IntLike const& value) { return value.integer(); }

template <std::integral T> constexpr std::optional<double> doubleOf(T value) noexcept { return static_cast<double>(value); }
constexpr std::optional<double> doubleOf(double value) noexcept { return value; }
TESSARIN_API std::optional<double> doubleOf(std::string_view text) noexcept;
template <std::same_as<Value> T> std::optional<double> doubleOf(T const& value) { return detail::doubleOf(value); }
template <std::convertible_to<std::string_view> T> std::optional<double> doubleOf(T const& text) noexcept {
    return doubleOf(std::string_view{text});
}
inline std::optional<double> doubleOf(DoubleLike const& value) { return value.number(); }

template <std::integral T> constexpr std::optional<float> floatOf(T value) noexcept { return static_cast<float>(value); }
constexpr std::optional<float> floatOf(float value) noexcept { return value; }
TESSARIN_API std::optional<float> floatOf(double value) noexcept;
TESSARIN_API std::optional<float> floatOf(std::string_view text) noexcept;
template <std::same_as<Value> T> std::optional<float> floatOf(T const& value) { return detail::floatOf(value); }
template <std::convertible_to<std::string_view> T> std::optional<float> floatOf(T const& text) noexcept {
    return floatOf(std::string_view{text});
}
inline std::optional<float> floatOf(FloatLike const& value) { return value.floatNumber(); }

/// What `integerOf` reads: `IntLike` classes, numbers, values, texts.
template <class T>
concept ReadsAsInt = requires(T const& value) {
    { integerOf(value) } -> std::same_as<std::optional<std::int64_t>>;
};
template <class T>
concept ReadsAsFloat = requires(T const& value) {
    { floatOf(value) } -> std::same_as<std::optional<float>>;
};
template <class T>
concept ReadsAsDouble = requires(T const& value) {
    { doubleOf(value) } -> std::same_as<std::optional<double>>;
};

} // namespace Tessarin
