#pragma once
#include <type_traits>
#include <utility>

namespace Tessarin {

/// A field of an option struct that may not be left out: it has no default constructor, so that leaving it out does not
/// compile and overloads which differ only by a label stay distinct. It takes what converts by itself: no text for a Selector.
template <class T> class Required {
public:
    template <class U>
        requires(std::is_convertible_v<U &&, T> && !std::is_same_v<std::remove_cvref_t<U>, Required>)
    Required(U&& value) : value_(std::forward<U>(value)) {}

    T const& get() const& noexcept { return value_; }
    T&& get() && noexcept { return std::move(value_); }
    operator T const&() const& noexcept { return value_; }
    T const* operator->() const noexcept { return &value_; }
    T const& operator*() const noexcept { return value_; }

private:
    T value_;
};

} // namespace Tessarin
