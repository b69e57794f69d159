#pragma once
#include "Tessarin/platform/objectgraph/context/FetchQuery.h"
#include "Tessarin/platform/objectgraph/live/LiveList.h"
#include <cstddef>

namespace Tessarin {

/// A live list as a range of Ts; a copy shows the same list. See LiveList for what it follows and how it tells.
///
///     LiveResults books(context->fetch<Book>().where(Book::year > 1800).sortedBy(Book::title));
///     auto const connection = books.observe([&](LiveChanges const& changes) { … });
///     for (auto const& book : books) print(book->get(Book::title));
template <class T> class LiveResults {
public:
    using value_type = Ref<T>;
    using Iterator = FetchedIterator<LiveResults>;

    /// The request's entity is T's; an object of another class reads as null.
    LiveResults(Ref<NSManagedObjectContext> context, Ref<NSFetchRequest> request, LiveOptions options = {})
        : list_(make<LiveList>(std::move(context), std::move(request), std::move(options))) {}
    explicit LiveResults(FetchQuery<T> const& query, LiveOptions options = {})
        : LiveResults(query.context(), query.request(), std::move(options)) {}
    explicit LiveResults(Ref<LiveList> list) noexcept : list_(std::move(list)) {}

    std::size_t size() const noexcept { return list_->size(); }
    bool empty() const noexcept { return list_->empty(); }
    Ref<T> operator[](std::size_t at) const { return detail::castToKnown<T>((*list_)[at]); }
    /// An iterator is as valid as this; what it leads to changes with the list.
    Iterator begin() const { return {*this, 0}; }
    Iterator end() const { return {*this, static_cast<std::ptrdiff_t>(size())}; }
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

} // namespace Tessarin
