#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"
#include <iterator>
#include <span>

namespace Tessarin {

class ContextLink;
TESSARIN_API void retainObject(ContextLink& link, std::uint32_t count = 1) noexcept;
TESSARIN_API void releaseObject(ContextLink& link) noexcept;
using ContextLinkRef = Retained<ContextLink>;

template <class List> class FetchedIterator;

/// The results of a fetch as a list that keeps 8 bytes for each and makes objects where it is looked at, the request's
/// `fetchBatchSize` at a time: for tables that show a part of very many records. Which records there are was settled by the
/// fetch; their values are those of the moment at which each is looked at. A record that was deleted since is an object whose
/// record is gone. On the queue of its context; an object stays while somebody keeps it.
///
///     request->setFetchBatchSize(100);
///     auto const books = context->fetchObjects(*request, error);
///     for (auto const& book : books) print(book->valueForKey("title"));
///     for (auto const& book : books | std::views::take(10)) … // a range, as all these lists are
class TESSARIN_API FetchedObjects {
public:
    using value_type = Ref<NSManagedObject>;
    using Iterator = FetchedIterator<FetchedObjects>;

    FetchedObjects() = default;

    std::size_t size() const noexcept { return keys_.size(); }
    bool empty() const noexcept { return keys_.empty(); }
    /// The records' keys, in their order.
    std::span<RecordKey const> keys() const noexcept { return keys_; }
    /// `at` is less than `size()`; fatal otherwise. Keeps the batch of that object until another is asked for. Whoever reads on
    /// from the end of a batch gets two, then four, up to 16 batches together.
    Ref<NSManagedObject> operator[](std::size_t at) const;
    /// As a T; null when it is none.
    template <class T> Ref<T> at(std::size_t place) const { return std::dynamic_pointer_cast<T>((*this)[place]); }
    Iterator begin() const;
    Iterator end() const;

private:
    friend class FetchOperation;
    friend class NSManagedObjectContext;

    ContextLinkRef link_;
    NSEntityDescription const* entity_ = nullptr;
    std::vector<RecordKey> keys_;
    std::vector<std::pair<std::size_t, Ref<NSManagedObject>>> unsaved_; // by place: their keys will change
    std::size_t batchSize_ = 1;
    mutable std::size_t first_ = 0; // of the batches that are kept
    mutable std::size_t batches_ = 1;
    mutable std::vector<Ref<NSManagedObject>> batch_;
};

/// Walks through a list by place; as valid as the list.
template <class List> class FetchedIterator {
public:
    using iterator_category = std::input_iterator_tag; // dereferencing makes what it gives
    using iterator_concept = std::random_access_iterator_tag;
    using value_type = typename List::value_type;
    using difference_type = std::ptrdiff_t;
    using reference = value_type;
    using pointer = void;

    FetchedIterator() = default;
    FetchedIterator(List const& list, difference_type at) noexcept : list_(&list), at_(at) {}

    reference operator*() const { return (*list_)[static_cast<std::size_t>(at_)]; }
    reference operator[](difference_type offset) const { return *(*this + offset); }
    FetchedIterator& operator+=(difference_type offset) noexcept {
        at_ += offset;
        return *this;
    }
    FetchedIterator& operator-=(difference_type offset) noexcept { return *this += -offset; }
    FetchedIterator& operator++() noexcept { return *this += 1; }
    FetchedIterator& operator--() noexcept { return *this -= 1; }
    FetchedIterator operator++(int) noexcept { return std::exchange(*this, *this + 1); }
    FetchedIterator operator--(int) noexcept { return std::exchange(*this, *this - 1); }
    friend FetchedIterator operator+(FetchedIterator it, difference_type offset) noexcept { return it += offset; }
    friend FetchedIterator operator+(difference_type offset, FetchedIterator it) noexcept { return it += offset; }
    friend FetchedIterator operator-(FetchedIterator it, difference_type offset) noexcept { return it -= offset; }
    friend difference_type operator-(FetchedIterator const& a, FetchedIterator const& b) noexcept { return a.at_ - b.at_; }
    friend bool operator==(FetchedIterator const& a, FetchedIterator const& b) noexcept { return a.at_ == b.at_; }
    friend auto operator<=>(FetchedIterator const& a, FetchedIterator const& b) noexcept { return a.at_ <=> b.at_; }

private:
    List const* list_ = nullptr;
    difference_type at_ = 0;
};

inline FetchedObjects::Iterator FetchedObjects::begin() const { return {*this, 0}; }
inline FetchedObjects::Iterator FetchedObjects::end() const { return {*this, static_cast<std::ptrdiff_t>(size())}; }

/// The same list as one of Ts: what is of another class reads as null.
template <class T> class FetchedList {
public:
    using value_type = Ref<T>;
    using Iterator = FetchedIterator<FetchedList>;

    FetchedList() = default;
    explicit FetchedList(FetchedObjects objects) : objects_(std::move(objects)) {}

    std::size_t size() const noexcept { return objects_.size(); }
    bool empty() const noexcept { return objects_.empty(); }
    Ref<T> operator[](std::size_t place) const { return detail::castToKnown<T>(objects_[place]); }
    Iterator begin() const { return {*this, 0}; }
    Iterator end() const { return {*this, static_cast<std::ptrdiff_t>(size())}; }
    FetchedObjects const& objects() const noexcept { return objects_; }

private:
    FetchedObjects objects_;
};

} // namespace Tessarin
