#include "Tessarin/platform/foundation/predicates/PredicateComparisonPrivate.h"

#include "Tessarin/platform/foundation/predicates/SearchWords.h"

#include <algorithm>

namespace Tessarin {
namespace {

using Kind = Value::Kind;
using Operator = NSPredicateOperatorType;

bool isNumeric(Value const& value) { return value.isNumber() || value.kind() == Kind::Decimal; }

bool isInOrder(Operator type, std::partial_ordering order) {
    switch (type) {
    case Operator::LessThan: return order < 0;
    case Operator::LessThanOrEqualTo: return order <= 0;
    case Operator::GreaterThan: return order > 0;
    default: return order >= 0;
    }
}

bool isOrdered(Operator type, TextOptions options, Value const& left, Value const& right) {
    if (left.isAbsent() || right.isAbsent()) return false;
    if (left.isText() && right.isText())
        return compareFoldedTexts(type, FoldedText{left.text(), options}.view(), FoldedText{right.text(), options}.view());
    return isInOrder(type, compareValues(left, right));
}

bool isEqual(TextOptions options, Value const& left, Value const& right) {
    if (options == TextOptions::None || !left.isText() || !right.isText()) return predicateEqual(left, right);
    return FoldedText{left.text(), options}.view() == FoldedText{right.text(), options}.view();
}

bool isIn(TextOptions options, Value const& value, Value const& container) {
    auto const isNot = [&](Value const& member) { return !isEqual(options, value, member); };
    switch (container.kind()) {
    case Kind::List: return !value.isAbsent() && !std::ranges::all_of(container.list(), isNot);
    case Kind::Set: return !value.isAbsent() && !std::ranges::all_of(container.set(), isNot);
    case Kind::Text:
        return value.isText() && compareFoldedTexts(Operator::Contains, FoldedText{container.text(), options}.view(),
                                                    FoldedText{value.text(), options}.view());
    default: return false;
    }
}

bool isBetween(TextOptions options, Value const& value, List const& bounds) {
    return bounds.size() == 2 && isOrdered(Operator::GreaterThanOrEqualTo, options, value, bounds[0]) &&
           isOrdered(Operator::LessThanOrEqualTo, options, value, bounds[1]);
}

bool matches(TextOptions options, std::string_view text, std::string_view expression) {
    auto const pattern = TextPattern::compile(expression, options);
    return pattern && pattern->matchesWhole(text);
}

} // namespace

bool predicateEqual(Value const& a, Value const& b) {
    if (a.kind() == Kind::Object && b.kind() == Kind::Object) {
        auto const &first = a.object()->predicateIdentity(), &second = b.object()->predicateIdentity();
        return &first == &second || first.isEqual(second);
    }
    if (isNumeric(a) && isNumeric(b)) return compareValues(a, b) == 0;
    return a == b;
}

bool compareFoldedTexts(Operator type, std::string_view left, std::string_view right) {
    switch (type) {
    case Operator::EqualTo: return left == right;
    case Operator::NotEqualTo: return left != right;
    case Operator::BeginsWith: return left.starts_with(right);
    case Operator::EndsWith: return left.ends_with(right);
    case Operator::Contains: return left.find(right) != left.npos;
    case Operator::In: return right.find(left) != right.npos;
    case Operator::Like: return matchesWildcards(left, right);
    default: return isInOrder(type, left <=> right);
    }
}

bool compareForPredicate(Operator type, TextOptions options, Value const& left, Value const& right) {
    switch (type) {
    case Operator::EqualTo: return isEqual(options, left, right);
    case Operator::NotEqualTo: return !isEqual(options, left, right);
    case Operator::In: return isIn(options, left, right);
    case Operator::Contains: return isIn(options, right, left);
    case Operator::Finds: return right.isText() && isFoundIn(SearchQuery(right.text()), left);
    case Operator::Between: return isBetween(options, left, right.list());
    case Operator::Matches: return left.isText() && right.isText() && matches(options, left.text(), right.text());
    case Operator::Like:
    case Operator::BeginsWith:
    case Operator::EndsWith:
        return left.isText() && right.isText() &&
               compareFoldedTexts(type, FoldedText{left.text(), options}.view(), FoldedText{right.text(), options}.view());
    default: return isOrdered(type, options, left, right);
    }
}

std::size_t PreparedMembers::ValueHash::operator()(Value const& value) const noexcept {
    if (value.kind() == Kind::Object) return value.object()->predicateIdentity().hash();
    return isNumeric(value) ? std::hash<double>{}(value.number()) : value.hash(); // equal across the kinds of numbers
}

PreparedMembers::PreparedMembers(Value const& members, TextOptions options) : options_(options) {
    auto const add = [&](Value const& member) {
        if (member.isText())
            texts_.insert(foldedText(member.text(), options));
        else if (!member.isAbsent())
            others_.insert(member);
    };
    for (auto const& member : members.list()) add(member);
    for (auto const& member : members.set()) add(member);
}

bool PreparedMembers::contains(Value const& value) const {
    return value.isText() ? texts_.contains(FoldedText{value.text(), options_}.view()) : others_.contains(value);
}

} // namespace Tessarin
