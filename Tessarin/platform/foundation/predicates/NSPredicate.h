#pragma once
#include "Tessarin/platform/foundation/predicates/NSExpression.h"
#include <set>
#include <span> // with the concepts of ranges, without the views

namespace Tessarin {

class NSError;
class NSComparisonPredicate;
class NSCompoundPredicate;

/// `Own`: an application's class that judges by itself.
enum class NSPredicateType { Value, Comparison, Compound, Own };

/// A condition on an object: parsed from a format, or built in code. Immutable; evaluated on any number of threads at once.
///
///     auto const emma = NSPredicate::predicateWithFormat("title BEGINSWITH[cd] %@ AND year < %d", "em", 1900);
///     if (emma->evaluateWithObject(book)) …
///
/// Formats know `==` (`=`), `!=` (`<>`), `<`, `<=`, `>`, `>=`, IN, BETWEEN, CONTAINS, BEGINSWITH, ENDSWITH, LIKE, MATCHES, FINDS,
/// each with [c], [d], [n] behind it; AND (`&&`), OR (`||`), NOT (`!`), ANY, SOME, ALL, NONE, TRUEPREDICATE, FALSEPREDICATE; numbers,
/// texts in quotes, inf, nil, YES, NO, SELF, $VARIABLE, { lists }; %@ for a value, %K for a key path, %d and its like for a
/// number. Keywords may be written in any case; "#" before a word makes it a key.
///
/// An absent value is unequal to every other, neither less nor greater than any, and in no list.
///
/// A direct subclass judges objects itself, by `evaluateWithObject`: one by one in memory, and never in SQLite. Two of them are equal
/// only when they are the same.
class TESSARIN_API NSPredicate : public NSObject {
public:
    /// Fatal for a malformed format, and when the arguments do not fit it. Ranges become lists.
    template <class... Arguments>
    static Ref<NSPredicate> predicateWithFormat(std::string_view format, Arguments const&... arguments) {
        constexpr bool areValues = (isArgument<Arguments>() && ...);
        static_assert(areValues, "an argument of a predicate is a value or a range of values; ValueTraits make a type's values such");
        if constexpr (areValues) return predicateWithFormatArguments(format, List{argument(arguments)...});
        else return nullptr;
    }
    static Ref<NSPredicate> predicateWithFormatArguments(std::string_view format, List const& arguments);
    /// The same for a format that may be malformed, such as one that a user wrote: null then, and `error` says why.
    static Ref<NSPredicate> parse(std::string_view format, List const& arguments = {}, Ref<NSError>* error = nullptr);
    static Ref<NSPredicate> predicateWithValue(bool value);

    NSPredicateType predicateType() const noexcept { return type_; }
    /// What a value predicate answers.
    bool value() const noexcept { return value_; }
    /// This predicate as the one or the other; null when it is not.
    NSComparisonPredicate const* asComparison() const noexcept;
    NSCompoundPredicate const* asCompound() const noexcept;

    /// Whether `object` (an object, a dictionary, or any value when the predicate speaks of SELF only) fulfils the condition.
    /// Fatal where an object does not know a key.
    virtual bool evaluateWithObject(Value const& object) const;

    /// All key paths from the evaluated object that the condition reads; without a "." in any of them it needs nothing but
    /// the object's own properties.
    std::set<std::string> keyPaths() const;
    virtual void collectKeyPaths(std::set<std::string>& paths) const;
    /// A copy with values in place of the variables that `values` names; the others stay.
    virtual Ref<NSPredicate> predicateWithSubstitutionVariables(Dictionary const& values) const;

    /// The condition as a format that reads back, as far as its constants have a literal form.
    virtual std::string predicateFormat() const;
    std::string description() const final { return predicateFormat(); }
    bool isEqual(NSObject const& other) const override;
    std::size_t hash() const override;

    using NSObject::init;
    virtual void init(bool value);

protected:
    NSPredicate() = default;
    NSPredicateType type_ = NSPredicateType::Own; // both constant after init
    bool value_ = true;

private:
    template <class T> static consteval bool isArgument() {
        if constexpr (std::is_constructible_v<Value, T const&>) return true;
        else if constexpr (std::ranges::input_range<T const&>)
            return isArgument<std::remove_cvref_t<std::ranges::range_reference_t<T const&>>>();
        return false;
    }
    template <class T> static Value argument(T const& value) {
        if constexpr (std::is_constructible_v<Value, T const&>) {
            return Value(value);
        } else {
            List list;
            for (auto const& member : value) list.push_back(argument(member));
            return list;
        }
    }
};

} // namespace Tessarin
