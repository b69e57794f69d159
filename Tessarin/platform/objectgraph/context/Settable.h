#pragma once
// What a setter takes for an attribute of type T.
#include "Tessarin/platform/objectgraph/context/PropertyKinds.h"
#include <cstdint>
#include <limits>

namespace Tessarin {

namespace query {

/// Whether every V is a P, and none changes on the way.
template <class V, class P> consteval bool alwaysFits() {
    if constexpr (std::is_same_v<V, P>)
        return true;
    else if constexpr (kindOf<V> != Kind::Number || !std::is_arithmetic_v<V> || !std::is_arithmetic_v<P>)
        return false;
    else if constexpr (std::is_floating_point_v<V> != std::is_floating_point_v<P>)
        return std::is_integral_v<V> && std::numeric_limits<V>::digits <= std::numeric_limits<P>::digits;
    else
        return std::numeric_limits<V>::digits <= std::numeric_limits<P>::digits && (!std::is_signed_v<V> || std::is_signed_v<P>);
}
/// Whether some Vs are Ps, so that a constant may be looked at. A fraction is never cut off.
template <class V, class P> consteval bool mayFit() {
    return kindOf<V> == Kind::Number && std::is_arithmetic_v<V> && !(std::is_floating_point_v<V> && std::is_integral_v<P>);
}

/// Named in the error about a constant; there is no such function.
void thisNumberIsTooLargeForTheAttribute();

struct Nothing {};

/// A number for an attribute of type P: whatever always fits, and constants that do.
template <class P> class Settable {
public:
    template <class V>
        requires(alwaysFits<V, P>())
    constexpr Settable(V number) noexcept : number_(static_cast<P>(number)) {}
    template <class V>
        requires(mayFit<V, P>() && !alwaysFits<V, P>())
    consteval Settable(V constant) : number_(static_cast<P>(constant)) {
        if (std::is_integral_v<V> ? static_cast<V>(number_) != constant
                                  : constant > std::numeric_limits<P>::max() || constant < std::numeric_limits<P>::lowest())
            thisNumberIsTooLargeForTheAttribute();
    }
    template <class V>
        requires(!mayFit<V, P>() && !alwaysFits<V, P>() && !std::is_same_v<V, Nothing>)
    Settable(V const&) : number_() {
        static_assert(alwaysFits<V, P>(), "this attribute takes a number of its own kind; only an optional one can be cleared");
    }
    explicit constexpr Settable(Nothing) noexcept : number_() {}
    Value value() && { return Value(number_); }

private:
    P number_;
};

/// Any other value.
template <class P>
    requires(!std::is_arithmetic_v<P> || std::is_same_v<P, bool>)
class Settable<P> {
    template <class V> static consteval bool fits() {
        if constexpr (std::is_same_v<P, Value>)
            return std::is_convertible_v<V const&, Value>;
        else if constexpr (kindOf<P> == Kind::Text)
            return kindOf<V> == Kind::Text && std::is_same_v<V, PlainType<V>>;
        else if constexpr (kindOf<P> == Kind::Truth)
            return std::is_same_v<V, bool>;
        else
            return !std::is_pointer_v<V> && !std::is_null_pointer_v<V> && std::is_convertible_v<V const&, P> &&
                   !(std::is_floating_point_v<V>);
    }

public:
    template <class V> Settable(V const& value) {
        constexpr bool isFit = fits<V>();
        static_assert(isFit, "this attribute takes a value of its own kind; only an optional one can be cleared");
        if constexpr (!isFit)
            return;
        else if constexpr (std::is_convertible_v<V const&, std::string_view>)
            value_ = Value(std::string_view(value)); // no copy
        else if constexpr (kindOf<P> == Kind::Text || std::is_same_v<P, Value>)
            value_ = value;
        else
            value_ = Value(static_cast<P const&>(value));
    }
    explicit Settable(Nothing) noexcept {}
    Value value() && { return std::move(value_); }

private:
    Value value_;
};

/// The same, or nothing: null, or an optional's value.
template <class P> class Settable<std::optional<P>> : public Settable<P> {
public:
    using Settable<P>::Settable;
    Settable(std::nullptr_t) : Settable<P>(Nothing()), isPresent_(false) {}
    Settable(std::nullopt_t) : Settable<P>(Nothing()), isPresent_(false) {}
    template <class V>
    Settable(std::optional<V> const& value)
        : Settable<P>(value ? Settable<P>(*value) : Settable<P>(Nothing())), isPresent_(value.has_value()) {}
    Value value() && { return isPresent_ ? static_cast<Settable<P>&&>(*this).value() : Value(); }

private:
    bool isPresent_ = true;
};

} // namespace query
} // namespace Tessarin
