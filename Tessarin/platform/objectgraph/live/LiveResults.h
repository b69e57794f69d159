#pragma once
#include "Tessarin/platform/objectgraph/context/FetchQuery.h"
#include "Tessarin/platform/objectgraph/live/LiveList.h"
#include <compare>
#include <cstddef>
#include <iterator>

namespace Tessarin {

/// A live list as a range of Ts; a copy shows the same list. See LiveList for what it follows and how it tells.
///
///     LiveResults books(context->fetch<Book>().where(Book::year > 1800).sortedBy(Book::title));
///     auto const connection = books.observe([&](LiveChanges const& changes) { … });
///     for (auto const& book : books) print(book->get(Book::title));
template <class T> class LiveResults {
public:
    class Iterator;

    /// The request's entity is T's; an object of another class reads as null.
    LiveResults(Ref<NSManagedObjectContext> context, Ref<NSFetchRequest> request, LiveOptions options = {})
        : list_(make<LiveList>(std::move(context), std::move(request), std::move(options))) {}
    explicit LiveResults(FetchQuery<T> const& query, LiveOptions options = {})
        : LiveResults(query.context(), query.request(), std::move(options)) {}
    explicit LiveResults(Ref<LiveList> list) noexcept : list_(std::move(list)) {}

    std::size_t size() const noexcept { return list_->size(); }
    bool empty() const noexcept { return list_->empty(); }
    Ref<T> operator[](std::size_t at) const { return detail::castToKnown<T>((*list_)[at]); }
    Iterator begin() const { return {*list_, 0}; }
    Iterator end() const { return {*list_, static_cast<std::ptrdiff_t>(size())}; }
    std::optional<std::size_t> indexOf(T const& object) const { return list_->indexOf(object); }

    std::span<LiveSection const> sections() const noexcept { return list_->sections(); }
    Ref<T> object(std::size_t section, std::size_t row) const { return detail::castToKnown<T>(list_->object(section, row)); }
    ScopedConnection observe(Closure<void(LiveChanges const&)> told) { return list_->observe(std::move(told)); }
    void finish() { list_->finish(); }
    Ref<NSError> const& error() const noexcept { return list_->error(); }
    /// The list itself: what models of toolkits take.
    Ref<LiveList> const& list() const noexcept { return list_; }

private:
    Ref<LiveList> list_;
};

/// Stays valid while the list lives; what it leads to changes with the list.
template <class T> class LiveResults<T>::Iterator {
public:
    using iterator_category = std::input_iterator_tag; // dereferencing makes what it gives
    using iterator_concept = std::random_access_iterator_tag;
    using value_type = Ref<T>;
    using difference_type = std::ptrdiff_t;
    using reference = Ref<T>;
    using pointer = void;

    Iterator() = default;
    Iterator(LiveList const& list, difference_type at) noexcept : list_(&list), at_(at) {}

    reference operator*() const { return detail::castToKnown<T>((*list_)[static_cast<std::size_t>(at_)]); }
    reference operator[](difference_type offset) const { return *(*this + offset); }
    Iterator& operator+=(difference_type offset) noexcept {
        at_ += offset;
        return *this;
    }
    Iterator& operator-=(difference_type offset) noexcept { return *this += -offset; }
    Iterator& operator++() noexcept { return *this += 1; }
    Iterator& operator--() noexcept { return *this -= 1; }
    Iterator operator++(int) noexcept { return std::exchange(*this, *this + 1); }
    Iterator operator--(int) noexcept { return std::exchange(*this, *this - 1); }
    friend Iterator operator+(Iterator it, difference_type offset) noexcept { return it += offset; }
    friend Iterator operator+(difference_type offset, Iterator it) noexcept { return it += offset; }
    friend Iterator operator-(Iterator it, difference_type offset) noexcept { return it -= offset; }
    friend difference_type operator-(Iterator const& a, Iterator const& b) noexcept { return a.at_ - b.at_; }
    friend bool operator==(Iterator const& a, Iterator const& b) noexcept { return a.at_ == b.at_; }
    friend auto operator<=>(Iterator const& a, Iterator const& b) noexcept { return a.at_ <=> b.at_; }

private:
    LiveList const* list_ = nullptr;
    difference_type at_ = 0;
};

} // namespace Tessarin
