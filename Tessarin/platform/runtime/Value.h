#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Decimal.h"
#include "Tessarin/platform/runtime/Ref.h"
#include "Tessarin/platform/runtime/Text.h"
#include <array>
#include <compare>
#include <concepts>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Tessarin {

class Dictionary;
class Value;
class ValueDictionary;
class ValueSet;
using List = std::vector<Value>;

/// How a value type of another room goes into a Value and comes back:
/// `static Value into(T const&)` and `static std::optional<T> from(Value const&)`.
template <class T> struct ValueTraits;

template <class T>
concept ValueConvertible = requires(T const& t, Value const& v) {
    ValueTraits<T>::into(t);
    ValueTraits<T>::from(v);
};

namespace detail {
template <class T>
concept Character = std::same_as<T, char> || std::same_as<T, wchar_t> || std::same_as<T, char8_t> || std::same_as<T, char16_t> ||
                    std::same_as<T, char32_t>;
template <class T> inline constexpr bool isObjectReference = false;
template <class T> inline constexpr bool isObjectReference<Ref<T>> = std::derived_from<T, NSObject>;
template <class T> concept WholeNumber = std::integral<T> && !std::same_as<T, bool> && !Character<T>;
} // namespace detail

namespace detail {
/// A type whose values go into a Value as texts: `static constexpr auto kind = Value::Kind::Text` in its ValueTraits.
template <class T>
concept TextByTraits = ValueConvertible<T> && requires { requires ValueTraits<T>::kind == decltype(ValueTraits<T>::kind)::Text; };
} // namespace detail

/// Any value, in sixteen bytes: immutable, cheap to copy, safe on any thread. Boolean, integer, float and double are all
/// "number objects" and equal when their numbers are; any other two kinds are never equal.
///
///     Value title = "Emma";  Value year = 1815;
///     if (year.isNumber()) print(title.text());
class TESSARIN_API Value : private detail::CompactCell {
public:
    enum class Kind : std::uint8_t {
        Absent,
        Boolean,
        Integer,
        Float,
        Double,
        Date,
        Text,
        UUID,
        Data,
        URL,
        Decimal,
        Object,
        List,
        Set,
        Dictionary,
        ValueDictionary
    };

    Value() noexcept = default;
    Value(std::nullptr_t) noexcept {}
    Value(std::nullopt_t) noexcept {}
    template <std::same_as<bool> B> Value(B value) noexcept { setNumber(Kind::Boolean, std::int64_t{value}); }
    /// An unsigned one beyond the largest signed one is a decimal.
    template <detail::WholeNumber I> Value(I value) noexcept {
        if constexpr (std::is_unsigned_v<I> && sizeof(I) == sizeof(std::int64_t))
            if (value > static_cast<I>(INT64_MAX)) {
                *this = large(value);
                return;
            }
        setNumber(Kind::Integer, static_cast<std::int64_t>(value));
    }
    template <detail::Character C> Value(C) = delete; // a text of one character, or a number? std::string(1, c), int(c)
    template <class T>
        requires(!std::same_as<std::remove_cv_t<T>, char>)
    Value(T*) = delete; // a pointer is no value: give what it points to
    template <class T>
        requires(std::is_aggregate_v<T> && !std::is_empty_v<T> && !ValueConvertible<T>)
    Value(T const&) = delete; // a type of one's own becomes a value by ValueTraits<T>
    Value(float value) noexcept { setNumber(Kind::Float, double{value}); }
    Value(double value) noexcept { setNumber(Kind::Double, value); }
    Value(std::string_view text) {
        detail::storeText(*this, text);
        tag = static_cast<unsigned char>(Kind::Text);
    }
    Value(char const* text) : Value(std::string_view{text}) {}
    Value(std::string const& text) : Value(std::string_view{text}) {}
    Value(Tessarin::Text text) noexcept : CompactCell(text) {
        tag = static_cast<unsigned char>(Kind::Text);
        static_cast<CompactCell&>(text) = {};
    }
    Value(Tessarin::Decimal const& value);
    Value(Ref<NSObject> object); // a null reference is absent
    template <class T>
        requires(std::derived_from<T, NSObject> && !std::same_as<T, NSObject>)
    Value(Ref<T> object) : Value(std::static_pointer_cast<NSObject>(std::move(object))) {}
    Value(Tessarin::List list); // Value(List{1, 2, 3})
    Value(Tessarin::Dictionary dictionary);
    Value(Tessarin::ValueDictionary dictionary);
    Value(ValueSet set);
    template <ValueConvertible T> Value(T const& value) : Value(ValueTraits<T>::into(value)) {}
    template <class T>
        requires std::constructible_from<Value, T>
    Value(std::optional<T> const& value) : Value(value ? Value(*value) : Value()) {}

    /// Seconds since 2001-01-01 00:00:00 UTC.
    static Value date(double seconds);
    static Value uuid(std::array<std::uint8_t, 16> const& bytes);
    static Value data(std::span<std::byte const> bytes);
    static Value data(std::vector<std::byte> bytes);
    static Value url(std::string_view text);

    Value(Value const& other) noexcept : CompactCell(other) {
        if (isShared()) retain();
    }
    Value(Value&& other) noexcept : CompactCell(other) { static_cast<CompactCell&>(other) = {}; }
    Value& operator=(Value other) noexcept {
        std::swap(static_cast<CompactCell&>(*this), static_cast<CompactCell&>(other));
        return *this;
    }
    ~Value() {
        if (isShared()) release();
    }

    Kind kind() const noexcept { return static_cast<Kind>(tag); }
    bool isAbsent() const noexcept { return kind() == Kind::Absent; }
    bool isNumber() const noexcept { return kind() >= Kind::Boolean && kind() <= Kind::Double; }
    bool isText() const noexcept { return kind() == Kind::Text; }
    explicit operator bool() const = delete; // "is it there?" is isAbsent(), "is it true?" is boolean()

    // Readings of the stated kinds. Numbers convert among each other (a double to an integer by truncation, saturated);
    // any other kind gives false, 0, an empty view or null.
    bool boolean() const noexcept;
    std::int64_t integer() const noexcept;
    double number() const noexcept; // decimals too
    std::string_view text() const noexcept { return isText() ? detail::textOf(*this) : std::string_view{}; }
    Tessarin::Text toText() const { return Tessarin::Text{text()}; }
    double dateSeconds() const noexcept;
    std::array<std::uint8_t, 16> uuidBytes() const noexcept;
    std::span<std::byte const> bytes() const noexcept;
    std::string_view urlText() const noexcept;
    Tessarin::Decimal decimal() const; // of a number too
    Ref<NSObject> const& object() const noexcept;
    template <class T> Ref<T> objectAs() const { return std::dynamic_pointer_cast<T>(object()); }
    Tessarin::List const& list() const noexcept; // an empty list for any other kind
    Tessarin::Dictionary const& dictionary() const noexcept;
    Tessarin::ValueDictionary const& valueDictionary() const noexcept;
    ValueSet const& set() const noexcept;

    /// What a subscript of an object or dictionary may be assigned to: not a bool, which could mean that it is there or that it is
    /// true, and nothing that refers to the value's memory.
    template <class T>
    static constexpr bool readsAs = std::same_as<T, std::string> || std::same_as<T, Tessarin::Text> ||
                                    std::same_as<T, Tessarin::Decimal> || std::floating_point<T> || detail::WholeNumber<T> ||
                                    detail::TextByTraits<T> || detail::isObjectReference<T>;
    /// The value as a T when it is one; absent otherwise. An integer does not read as text, a double not as an integer.
    template <class T> std::optional<T> as() const;

    std::size_t hash() const noexcept;
    std::string description() const;
    friend TESSARIN_API bool operator==(Value const& a, Value const& b);
    friend TESSARIN_API std::ostream& operator<<(std::ostream& out, Value const& value);

private:
    friend class ValueBoxes;
    static Value large(std::uint64_t number);
    bool isShared() const noexcept {
        return kind() > Kind::Text || (kind() == Kind::Text && raw[inlineCapacity] == onHeap);
    }
    void retain() const noexcept;
    void release() noexcept;
    template <class N> void setNumber(Kind kind, N number) noexcept {
        static_assert(sizeof number == 8);
        __builtin_memcpy(raw, &number, sizeof number);
        tag = static_cast<unsigned char>(kind);
    }
    template <class N> N getNumber() const noexcept {
        N number;
        __builtin_memcpy(&number, raw, sizeof number);
        return number;
    }
};

/// Order of two values as sorting and `<` in predicates use it: numbers, decimals and dates by size, texts by their bytes,
/// absent before everything. Unordered when the kinds cannot be compared.
TESSARIN_API std::partial_ordering compareValues(Value const& a, Value const& b);

} // namespace Tessarin

template <> struct std::hash<Tessarin::Value> {
    std::size_t operator()(Tessarin::Value const& value) const noexcept { return value.hash(); }
};

#include "Tessarin/platform/runtime/Dictionary.h"
