#pragma once
#include <cstddef>
#include <iterator>
#include <optional>
#include <utility>

namespace Tessarin {

/// Walks a generator for range-for and `std::ranges`: one call of `next()` at the start, one at each step, so that what a
/// generator reads live is read when the loop comes to it.
template <class Generator> class GeneratorIterator {
public:
    using value_type = typename decltype(std::declval<Generator&>().next())::value_type;
    using difference_type = std::ptrdiff_t;
    using iterator_concept = std::input_iterator_tag;

    GeneratorIterator() = default; // at the end
    explicit GeneratorIterator(Generator generator) : generator_(std::move(generator)), element_(generator_->next()) {}

    value_type const& operator*() const { return *element_; }
    value_type const* operator->() const { return &*element_; }
    GeneratorIterator& operator++() {
        element_ = generator_->next();
        return *this;
    }
    void operator++(int) { ++*this; }
    friend bool operator==(GeneratorIterator const& iterator, std::default_sentinel_t) { return !iterator.element_; }

private:
    std::optional<Generator> generator_;
    std::optional<value_type> element_;
};

} // namespace Tessarin
