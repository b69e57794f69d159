#pragma once
// How conditions are written. What does not fit is told in the first function that the application calls, so that the compiler
// has one place to name.

namespace Tessarin::query {

template <class V> Value constantOf(V const& value) {
    if constexpr (kindOf<V> == Kind::Nil)
        return {};
    else if constexpr (!std::is_same_v<PlainType<V>, std::remove_cvref_t<V>>)
        return value ? constantOf(*value) : Value();
    else if constexpr (std::convertible_to<V const&, std::string_view>)
        return Value(std::string_view(value));
    else
        return Value(value);
}

template <PathLike P> ComparedPath comparedPath(P const& path) { return {keyPathOf(path), P::pathMode}; }

/// What a side of a comparison is: a path's type, or the value's own.
template <class V> struct Content {
    using Type = V;
};
template <PathLike P> struct Content<P> {
    using Type = typename P::PathContent;
};
template <class V> using ContentOf = typename Content<V>::Type;
template <class V> struct RootOfSide {
    using Type = void;
};
template <PathLike P> struct RootOfSide<P> {
    using Type = typename P::PathRoot;
};
template <class L, class R> using CommonRoot = LowerOf<typename RootOfSide<L>::Type, typename RootOfSide<R>::Type>;

template <class V> consteval bool isSingle() {
    if constexpr (PathLike<V>)
        return V::pathMode != PathMode::Members;
    else
        return true;
}
template <class V> consteval bool isPlain() {
    if constexpr (PathLike<V>)
        return V::pathMode == PathMode::One;
    else
        return true;
}
/// Whether each is one value, or says of which members it speaks, and both can be of one object.
template <class L, class R> consteval bool haveOneSubject() {
    return isSingle<L>() && isSingle<R>() && (isPlain<L>() || isPlain<R>()) &&
           areRelated<typename RootOfSide<L>::Type, typename RootOfSide<R>::Type>();
}
template <class L, class R>
inline constexpr bool areComparable =
    haveOneSubject<L, R>() && (mayEqual<ContentOf<L>, ContentOf<R>>() || mayEqual<ContentOf<R>, ContentOf<L>>());
template <class L, class R>
inline constexpr bool areInOrder =
    haveOneSubject<L, R>() && mayBeOrdered<ContentOf<L>, ContentOf<R>>() && mayBeOrdered<ContentOf<R>, ContentOf<L>>();

constexpr NSPredicateOperatorType mirrored(NSPredicateOperatorType type) {
    switch (type) {
    case NSPredicateOperatorType::LessThan: return NSPredicateOperatorType::GreaterThan;
    case NSPredicateOperatorType::LessThanOrEqualTo: return NSPredicateOperatorType::GreaterThanOrEqualTo;
    case NSPredicateOperatorType::GreaterThan: return NSPredicateOperatorType::LessThan;
    case NSPredicateOperatorType::GreaterThanOrEqualTo: return NSPredicateOperatorType::LessThanOrEqualTo;
    default: return type;
    }
}

/// What was told not to fit makes nothing, so that there is no second error.
template <NSPredicateOperatorType type, bool isFit, class L, class R>
TypedPredicate<CommonRoot<L, R>> conditionOf(L const& left, R const& right, TextOptions options = TextOptions::None) {
    using Made = TypedPredicate<CommonRoot<L, R>>;
    if constexpr (!isFit)
        return Made(Ref<NSPredicate>());
    else if constexpr (!PathLike<L> || !isPlain<R>())
        return conditionOf<mirrored(type), true>(right, left, options);
    else if constexpr (PathLike<R>)
        return Made(comparedWithPath(comparedPath(left), type, keyPathOf(right), options));
    else
        return Made(compared(comparedPath(left), type, constantOf(right), options));
}

template <class L, class R> concept Compared = PathLike<L> || PathLike<R>;

template <class L, class R>
    requires Compared<L, R>
auto operator==(L const& left, R const& right) {
    static_assert(areComparable<L, R>, "a text is compared with a text, a number with a number, an object with one of its class; "
                                       "a to-many relationship through any(…), all(…), none(…) or count(…)");
    return conditionOf<NSPredicateOperatorType::EqualTo, areComparable<L, R>>(left, right);
}
template <class L, class R>
    requires Compared<L, R>
auto operator!=(L const& left, R const& right) {
    static_assert(areComparable<L, R>, "a text is compared with a text, a number with a number, an object with one of its class; "
                                       "a to-many relationship through any(…), all(…), none(…) or count(…)");
    return conditionOf<NSPredicateOperatorType::NotEqualTo, areComparable<L, R>>(left, right);
}
template <class L, class R>
    requires Compared<L, R>
auto operator<(L const& left, R const& right) {
    static_assert(areInOrder<L, R>, "texts, numbers and dates have an order, each among its own kind; "
                                    "a to-many relationship is compared through any(…), all(…), none(…) or count(…)");
    return conditionOf<NSPredicateOperatorType::LessThan, areInOrder<L, R>>(left, right);
}
template <class L, class R>
    requires Compared<L, R>
auto operator<=(L const& left, R const& right) {
    static_assert(areInOrder<L, R>, "texts, numbers and dates have an order, each among its own kind; "
                                    "a to-many relationship is compared through any(…), all(…), none(…) or count(…)");
    return conditionOf<NSPredicateOperatorType::LessThanOrEqualTo, areInOrder<L, R>>(left, right);
}
template <class L, class R>
    requires Compared<L, R>
auto operator>(L const& left, R const& right) {
    static_assert(areInOrder<L, R>, "texts, numbers and dates have an order, each among its own kind; "
                                    "a to-many relationship is compared through any(…), all(…), none(…) or count(…)");
    return conditionOf<NSPredicateOperatorType::GreaterThan, areInOrder<L, R>>(left, right);
}
template <class L, class R>
    requires Compared<L, R>
auto operator>=(L const& left, R const& right) {
    static_assert(areInOrder<L, R>, "texts, numbers and dates have an order, each among its own kind; "
                                    "a to-many relationship is compared through any(…), all(…), none(…) or count(…)");
    return conditionOf<NSPredicateOperatorType::GreaterThanOrEqualTo, areInOrder<L, R>>(left, right);
}

template <class C> concept IsCondition = requires { typename C::ConditionRoot; };
/// A path to a bool says by itself whether it is true.
template <class C> concept IsTruth = PathLike<C> && kindOf<typename C::PathContent> == Kind::Truth && isSingle<C>();
template <class C> concept ConditionLike = IsCondition<C> || IsTruth<C>;

template <class C> struct RootOfCondition {
    using Type = void;
};
template <IsCondition C> struct RootOfCondition<C> {
    using Type = typename C::ConditionRoot;
};
template <IsTruth C> struct RootOfCondition<C> {
    using Type = typename C::PathRoot;
};
template <class L, class R>
inline constexpr bool areJoinable =
    ConditionLike<L> && ConditionLike<R> && areRelated<typename RootOfCondition<L>::Type, typename RootOfCondition<R>::Type>();

template <class C> ConditionParts partsOf(C&& condition) {
    if constexpr (IsCondition<std::remove_cvref_t<C>>)
        return std::forward<C>(condition);
    else
        return ConditionParts(compared(comparedPath(condition), NSPredicateOperatorType::EqualTo, true));
}
template <class L, class R> auto joined(NSCompoundPredicateType join, L&& left, R&& right) {
    using Left = typename RootOfCondition<std::remove_cvref_t<L>>::Type;
    using Right = typename RootOfCondition<std::remove_cvref_t<R>>::Type;
    auto parts = partsOf(std::forward<L>(left));
    parts.join(join, partsOf(std::forward<R>(right)));
    return TypedPredicate<LowerOf<Left, Right>>(std::move(parts));
}

template <class L, class R>
    requires(ConditionLike<std::remove_cvref_t<L>> || ConditionLike<std::remove_cvref_t<R>>)
auto operator&&(L&& left, R&& right) {
    constexpr bool isFit = areJoinable<std::remove_cvref_t<L>, std::remove_cvref_t<R>>;
    static_assert(isFit, "&& joins two conditions on objects of one class");
    if constexpr (isFit)
        return joined(NSCompoundPredicateType::And, std::forward<L>(left), std::forward<R>(right));
    else
        return TypedPredicate<>(Ref<NSPredicate>());
}
template <class L, class R>
    requires(ConditionLike<std::remove_cvref_t<L>> || ConditionLike<std::remove_cvref_t<R>>)
auto operator||(L&& left, R&& right) {
    constexpr bool isFit = areJoinable<std::remove_cvref_t<L>, std::remove_cvref_t<R>>;
    static_assert(isFit, "|| joins two conditions on objects of one class");
    if constexpr (isFit)
        return joined(NSCompoundPredicateType::Or, std::forward<L>(left), std::forward<R>(right));
    else
        return TypedPredicate<>(Ref<NSPredicate>());
}
template <class C>
    requires ConditionLike<std::remove_cvref_t<C>>
auto operator!(C&& condition) {
    auto parts = partsOf(std::forward<C>(condition));
    parts.negate();
    return TypedPredicate<typename RootOfCondition<std::remove_cvref_t<C>>::Type>(std::move(parts));
}

/// Texts asked in another way than by comparison.
template <class L, class R>
inline constexpr bool areTexts =
    haveOneSubject<L, R>() && kindOf<ContentOf<L>> == Kind::Text && kindOf<ContentOf<R>> == Kind::Text;
template <class L, class V>
inline constexpr bool holdsObject =
    PathLike<L> && L::pathMode == PathMode::Members && kindOf<V> == Kind::Object && objectsFit<ContentOf<L>, V>();

template <class Self, class T, class Root>
template <class V>
TypedPredicate<Root> PropertyQuestions<Self, T, Root>::contains(V const& value, TextOptions options) const {
    constexpr bool isFit = areTexts<Self, V> || holdsObject<Self, V>;
    static_assert(isFit, "a text attribute contains texts, a to-many relationship objects of its class");
    if constexpr (isFit && PathLike<V>)
        return TypedPredicate<Root>(
            comparedWithPath(comparedPath(path()), NSPredicateOperatorType::Contains, keyPathOf(value), options));
    else if constexpr (isFit)
        return TypedPredicate<Root>(
            compared(comparedPath(path()), NSPredicateOperatorType::Contains, constantOf(value), options));
    else
        return TypedPredicate<Root>(Ref<NSPredicate>());
}
template <class Self, class T, class Root>
template <class V>
TypedPredicate<Root> PropertyQuestions<Self, T, Root>::beginsWith(V const& text, TextOptions options) const {
    constexpr bool isFit = areTexts<Self, V>;
    static_assert(isFit, "beginsWith asks a text attribute for a text");
    return conditionOf<NSPredicateOperatorType::BeginsWith, isFit>(path(), text, options);
}
template <class Self, class T, class Root>
template <class V>
TypedPredicate<Root> PropertyQuestions<Self, T, Root>::endsWith(V const& text, TextOptions options) const {
    constexpr bool isFit = areTexts<Self, V>;
    static_assert(isFit, "endsWith asks a text attribute for a text");
    return conditionOf<NSPredicateOperatorType::EndsWith, isFit>(path(), text, options);
}
template <class Self, class T, class Root>
template <class V>
TypedPredicate<Root> PropertyQuestions<Self, T, Root>::like(V const& pattern, TextOptions options) const {
    constexpr bool isFit = areTexts<Self, V>;
    static_assert(isFit, "like asks a text attribute for a text");
    return conditionOf<NSPredicateOperatorType::Like, isFit>(path(), pattern, options);
}
template <class Self, class T, class Root>
template <class V>
TypedPredicate<Root> PropertyQuestions<Self, T, Root>::matches(V const& pattern, TextOptions options) const {
    constexpr bool isFit = areTexts<Self, V>;
    static_assert(isFit, "matches asks a text attribute for a text");
    return conditionOf<NSPredicateOperatorType::Matches, isFit>(path(), pattern, options);
}
template <class Self, class T, class Root>
template <class V>
TypedPredicate<Root> PropertyQuestions<Self, T, Root>::finds(V const& words) const {
    constexpr bool isFit = areTexts<Self, V> && !PathLike<V>;
    static_assert(isFit, "finds asks a text attribute for the words of a text");
    return conditionOf<NSPredicateOperatorType::Finds, isFit>(path(), words);
}
/// `{title, text} FINDS "jane pri"`: the attributes have all those words together.
template <PathLike First, PathLike... Others> auto finds(std::string_view words, First const& first, Others const&... others) {
    constexpr bool areOfTexts = areTexts<First, std::string> && (areTexts<Others, std::string> && ...);
    constexpr bool areSingle = First::pathMode == PathMode::One && ((Others::pathMode == PathMode::One) && ...);
    constexpr bool areOfOne = (areRelated<typename First::PathRoot, typename Others::PathRoot>() && ...);
    static_assert(areOfTexts && areSingle && areOfOne, "finds looks at text attributes of one class");
    return TypedPredicate<typename First::PathRoot>(wordsFound({keyPathOf(first), keyPathOf(others)...}, words));
}
template <class Self, class T, class Root>
template <class V>
TypedPredicate<Root> PropertyQuestions<Self, T, Root>::equals(V const& text, TextOptions options) const {
    constexpr bool isFit = areTexts<Self, V>;
    static_assert(isFit, "equals asks a text attribute for a text");
    return conditionOf<NSPredicateOperatorType::EqualTo, isFit>(path(), text, options);
}
template <class Self, class T, class Root>
template <class Low, class High>
TypedPredicate<Root> PropertyQuestions<Self, T, Root>::between(Low const& low, High const& high) const {
    constexpr bool isFit = areInOrder<Self, Low> && areInOrder<Self, High> && !PathLike<Low> && !PathLike<High>;
    static_assert(isFit, "between(…) takes two values of the attribute's kind: texts, numbers or dates");
    if constexpr (!isFit)
        return TypedPredicate<Root>(Ref<NSPredicate>());
    else
        return TypedPredicate<Root>(
            compared(comparedPath(path()), NSPredicateOperatorType::Between, List{constantOf(low), constantOf(high)}));
}

template <class Self, class T, class Root>
template <class Values>
TypedPredicate<Root> PropertyQuestions<Self, T, Root>::in(Values const& values) const {
    if constexpr (std::ranges::input_range<Values const&>) {
        using Member = std::remove_cvref_t<std::ranges::range_reference_t<Values const&>>;
        constexpr bool isFit = areComparable<Self, Member> && !PathLike<Member>;
        static_assert(isFit, "in(…) takes a range of what the property is compared with");
        List list;
        if constexpr (isFit)
            for (auto const& value : values) list.push_back(constantOf(value));
        return TypedPredicate<Root>(compared(comparedPath(path()), NSPredicateOperatorType::In, std::move(list)));
    } else {
        static_assert(std::ranges::input_range<Values const&>, "in(…) takes a range of what the property is compared with");
        return TypedPredicate<Root>(Ref<NSPredicate>());
    }
}
template <class Self, class T, class Root>
template <class V>
TypedPredicate<Root> PropertyQuestions<Self, T, Root>::in(std::initializer_list<V> values) const {
    constexpr bool isFit = areComparable<Self, V> && !PathLike<V>;
    static_assert(isFit, "in({…}) takes a list of what the property is compared with");
    List list;
    if constexpr (isFit)
        for (auto const& value : values) list.push_back(constantOf(value));
    return TypedPredicate<Root>(compared(comparedPath(path()), NSPredicateOperatorType::In, std::move(list)));
}

template <class Self, class T, class Root> TypedPredicate<Root> PropertyQuestions<Self, T, Root>::isNil() const {
    static_assert(isSingle<Self>(), "a to-many relationship is never nil: ask for count(…) == 0");
    return TypedPredicate<Root>(compared(comparedPath(path()), NSPredicateOperatorType::EqualTo, {}));
}
template <class Self, class T, class Root> TypedPredicate<Root> PropertyQuestions<Self, T, Root>::isNotNil() const {
    static_assert(isSingle<Self>(), "a to-many relationship is never nil: ask for count(…) > 0");
    return TypedPredicate<Root>(compared(comparedPath(path()), NSPredicateOperatorType::NotEqualTo, {}));
}

template <class Self, class T> inline constexpr bool isOrder = Self::pathMode == PathMode::One && kindOf<T> != Kind::Object;
template <class Root, PathLike P> SortKey<Root> sortKey(P const& path, SortOptions options) {
    return SortKey<Root>(NSSortDescriptor::sortDescriptorWithKey(keyPathOf(path), options));
}
template <class Self, class T, class Root> SortKey<Root> PropertyQuestions<Self, T, Root>::ordered(SortOptions options) const {
    static_assert(isOrder<Self, T>,
                  "an order is by an attribute, reached through to-one relationships only, or by count(…) and its like");
    return sortKey<Root>(path(), options);
}
template <class Self, class T, class Root> SortKey<Root> PropertyQuestions<Self, T, Root>::ascending() const {
    static_assert(isOrder<Self, T>,
                  "an order is by an attribute, reached through to-one relationships only, or by count(…) and its like");
    return sortKey<Root>(path(), {});
}
template <class Self, class T, class Root> SortKey<Root> PropertyQuestions<Self, T, Root>::descending() const {
    static_assert(isOrder<Self, T>,
                  "an order is by an attribute, reached through to-one relationships only, or by count(…) and its like");
    return sortKey<Root>(path(), {.ascending = false});
}
template <class Self, class T, class Root> SortKey<Root> PropertyQuestions<Self, T, Root>::localized() const {
    static_assert(isOrder<Self, T>,
                  "an order is by an attribute, reached through to-one relationships only, or by count(…) and its like");
    return sortKey<Root>(path(), {.comparison = TextComparison::Localized});
}

} // namespace Tessarin::query
