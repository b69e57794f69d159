#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/context/TypedPredicate.h"
#include "Tessarin/platform/objectgraph/context/FetchedObjects.h"
#include "Tessarin/platform/objectgraph/context/NSAsynchronousFetchRequest.h"
#include "Tessarin/platform/objectgraph/query/FetchExplanation.h"
#include "Tessarin/platform/objectgraph/query/NSFetchRequest.h"
#include <iterator>
#include <optional>
#include <span>

namespace Tessarin {

class FetchAwaitable;
class NSManagedObjectContext;

/// What all typed queries have. Copied like a value.
class TESSARIN_API AnyFetchQuery {
public:
    /// The context that answers; kept, so that the query does not outlive it.
    Ref<NSManagedObjectContext> const& context() const noexcept { return context_; }
    /// A new request that asks the same, to be changed further or to be used elsewhere.
    Ref<NSFetchRequest> request() const;
    /// How many there are within offset and limit. On an error one line is printed and the result is NSNotFound.
    std::int64_t count() const;
    /// How the query is answered, see the context's `explain`. On an error one line is printed.
    FetchExplanation explain() const;

protected:
    AnyFetchQuery(Ref<NSManagedObjectContext> context, std::string entityName);
    void add(query::ConditionParts const& condition);
    void addSearch(std::string_view words);
    // What fails goes into `error`; without one, a line is printed.
    bool take(FunctionRef<void(std::span<Ref<NSManagedObject>>, std::size_t)> take, Ref<NSError>* error = nullptr) const;
    FetchedObjects fetched(Ref<NSError>* error = nullptr) const;
    Ref<NSAsynchronousFetch> fetchedAsync(FetchCompletion completion) const;

    Ref<NSManagedObjectContext> context_;
    std::string entityName_;
    std::optional<query::ConditionParts> condition_;
    std::vector<Ref<NSSortDescriptor>> sortDescriptors_;
    std::vector<std::string> prefetched_;
    std::size_t limit_ = 0, offset_ = 0, batchSize_ = 0;
};

/// A fetch that the compiler has read: which objects of the class T, in what order, and how many. Each step gives a new query
/// and leaves the one it was asked of as it is; a query may be copied, kept and asked again. Asking it belongs on the queue
/// of its context.
///
///     auto const books = context->fetch<Book>()
///                            .where(Book::author / Author::name == "Jane" && Book::year > 1800)
///                            .sortedBy(Book::year.descending(), Book::title.localized());
///     for (auto const& book : books.limit(50)) print(book->get(Book::title));
///     if (auto const newest = books.first()) …
template <class T> class FetchQuery : public AnyFetchQuery {
public:
    using Object = T;

    /// Of the entity that the class names, with its sub-entities. `context->fetch<Book>()` reads better.
    FetchQuery(Ref<NSManagedObjectContext> context, std::string entityName)
        : AnyFetchQuery(std::move(context), std::move(entityName)) {}

    /// Only what fulfils the condition, too: `query.where(a).where(b)` asks for both. A predicate of whatever origin will do; a
    /// null one adds nothing.
    template <class C> [[nodiscard]] FetchQuery where(C const& condition) const&;
    template <class C> [[nodiscard]] FetchQuery where(C const& condition) &&;
    /// In this order, the first key before the next: attributes and paths (ascending), `Book::year.descending()`, or
    /// descriptors. Takes the place of an order that was said before.
    template <class... Keys> [[nodiscard]] FetchQuery sortedBy(Keys const&... keys) const&;
    template <class... Keys> [[nodiscard]] FetchQuery sortedBy(Keys const&... keys) &&;
    /// What has all those words in its full-text attributes, taken together; the last may be the beginning of one. Beside other
    /// conditions. The best first: `.sortedBy(searchRank())`. Fatal for an entity without full-text attributes.
    [[nodiscard]] FetchQuery search(std::string_view words) const& { return FetchQuery(*this).search(words); }
    [[nodiscard]] FetchQuery search(std::string_view words) && { return addSearch(words), std::move(*this); }
    /// 0: all.
    [[nodiscard]] FetchQuery limit(std::size_t most) const& { return FetchQuery(*this).limit(most); }
    [[nodiscard]] FetchQuery limit(std::size_t most) && { return limit_ = most, std::move(*this); }
    /// How many of the first are left out.
    [[nodiscard]] FetchQuery offset(std::size_t first) const& { return FetchQuery(*this).offset(first); }
    [[nodiscard]] FetchQuery offset(std::size_t first) && { return offset_ = first, std::move(*this); }
    /// How many objects `list()` makes at a time; 0: all.
    [[nodiscard]] FetchQuery batchSize(std::size_t size) const& { return FetchQuery(*this).batchSize(size); }
    [[nodiscard]] FetchQuery batchSize(std::size_t size) && { return batchSize_ = size, std::move(*this); }
    /// Relationships, and paths of them, that are read with the results, beside those that were named before.
    template <class... Paths> [[nodiscard]] FetchQuery prefetching(Paths const&... paths) const&;
    template <class... Paths> [[nodiscard]] FetchQuery prefetching(Paths const&... paths) &&;

    /// What the query finds, with unsaved changes taken into account. Objects of other classes are left out. On an error one
    /// line is printed and the list is empty; or `error` is set, and null when there was none.
    std::vector<Ref<T>> objects() const { return found(nullptr); }
    std::vector<Ref<T>> objects(Ref<NSError>& error) const { return found(&error); }
    /// The first of them, or null.
    Ref<T> first() const;
    /// A list that makes its objects where it is looked at, `batchSize` at a time. Errors as above.
    FetchedList<T> list() const { return FetchedList<T>(fetched()); }
    FetchedList<T> list(Ref<NSError>& error) const { return FetchedList<T>(fetched(&error)); }

    /// The list, found while this thread goes on: as the context's `fetchAsync`, which says what holds.
    Ref<NSAsynchronousFetch> async(Closure<void(FetchedList<T> list, Ref<NSError> const& error)> completion) const;
    /// The same for a task: `auto const [books, error] = co_await query.fetchAsync();`
    template <class Awaitable = FetchAwaitable> [[nodiscard]] auto fetchAsync() const {
        return typename Awaitable::template Of<T>(context_, request());
    }

    /// Walks through `objects()`.
    class Iterator;
    Iterator begin() const { return Iterator(objects()); }
    std::default_sentinel_t end() const noexcept { return {}; }

private:
    std::vector<Ref<T>> found(Ref<NSError>* error) const;
};

template <class T> class FetchQuery<T>::Iterator {
public:
    using value_type = Ref<T>;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    explicit Iterator(std::vector<Ref<T>> objects) : objects_(std::make_shared<std::vector<Ref<T>>>(std::move(objects))) {}
    Ref<T> const& operator*() const { return (*objects_)[at_]; }
    Iterator& operator++() noexcept { return ++at_, *this; }
    Iterator operator++(int) noexcept {
        auto const old = *this;
        ++at_;
        return old;
    }
    friend bool operator==(Iterator const& it, std::default_sentinel_t) noexcept { return it.at_ == it.objects_->size(); }

private:
    Ref<std::vector<Ref<T>>> objects_;
    std::size_t at_ = 0;
};

} // namespace Tessarin

#include "Tessarin/platform/objectgraph/context/FetchQuery.inl"
