#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include "Tessarin/platform/objectgraph/context/PropertyPath.h"
#include <string>
#include <utility>
#include <vector>

namespace Tessarin {

namespace query {

/// Predicates that are joined, as a format joins them: `a && b && c` is one AND of three.
class TESSARIN_API ConditionParts {
public:
    explicit ConditionParts(Ref<NSPredicate> only) { parts_.push_back(std::move(only)); }
    void join(NSCompoundPredicateType join, ConditionParts const& other);
    void negate();
    Ref<NSPredicate> predicate() const;

private:
    NSCompoundPredicateType join_ = NSCompoundPredicateType::And;
    std::vector<Ref<NSPredicate>> parts_;
};

/// The left side of a comparison: a path, and what is said of its members.
struct ComparedPath {
    std::string keyPath;
    PathMode mode = PathMode::One;
};
TESSARIN_API Ref<NSPredicate> compared(ComparedPath left, NSPredicateOperatorType type, Value right, TextOptions options = {});
TESSARIN_API Ref<NSPredicate> comparedWithPath(ComparedPath left, NSPredicateOperatorType type, std::string_view right,
                                               TextOptions options = {});

/// `{title, text} FINDS "jane pri"`.
TESSARIN_API Ref<NSPredicate> wordsFound(std::vector<std::string> const& keyPaths, std::string_view words);

} // namespace query

/// A condition on objects of the class Root (void: of a class that the compiler does not know), written with property handles:
///
///     auto early = Book::year < 1800 || Book::title.beginsWith("A", caseInsensitive);
///     context->allObjects<Book>({.predicate = early && !Book::isDraft});
///
/// It stands for the predicate that the format text of the same meaning makes. An attribute of type bool is a condition by
/// itself. A value; any thread.
template <class Root = void> class TypedPredicate : public query::ConditionParts {
public:
    using ConditionRoot = Root;

    explicit TypedPredicate(ConditionParts parts) : ConditionParts(std::move(parts)) {}
    /// Any other predicate, to be joined with typed conditions. Fatal when it is null.
    explicit TypedPredicate(Ref<NSPredicate> predicate) : ConditionParts(std::move(predicate)) {}
    template <class Other>
        requires(!std::is_same_v<Root, Other> && query::areRelated<Root, Other>())
    TypedPredicate(TypedPredicate<Other> other) : ConditionParts(std::move(other)) {}

    operator Ref<NSPredicate>() const { return predicate(); }
};
TypedPredicate(Ref<NSPredicate>) -> TypedPredicate<void>;

/// One order of a query: `Book::title.localized().descending()`.
template <class Root = void> class SortKey {
public:
    using SortRoot = Root;

    explicit SortKey(Ref<NSSortDescriptor> descriptor) : descriptor_(std::move(descriptor)) {}
    SortKey ascending() const { return inOrder(true); }
    SortKey descending() const { return inOrder(false); }
    Ref<NSSortDescriptor> const& descriptor() const noexcept { return descriptor_; }
    operator Ref<NSSortDescriptor>() const { return descriptor_; }

private:
    SortKey inOrder(bool ascending) const {
        return descriptor_->ascending() == ascending ? *this : SortKey(descriptor_->reversedSortDescriptor());
    }
    Ref<NSSortDescriptor> descriptor_;
};

} // namespace Tessarin

#include "Tessarin/platform/objectgraph/context/TypedPredicate.inl"
