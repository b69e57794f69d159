#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"

#include "Tessarin/platform/foundation/predicates/PredicateComparisonPrivate.h"
#include "Tessarin/platform/foundation/predicates/SearchWords.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <set>

namespace Tessarin {

using Kind = Value::Kind;
using Modifier = NSComparisonPredicateModifier;
using Operator = NSPredicateOperatorType;

/// What is known of a constant right side before any object is there.
struct NSComparisonPredicate::Prepared {
    Value right;
    std::optional<std::string> folded; // a text, for every operator but MATCHES, where folding it makes a difference
    Ref<TextPattern const> pattern;
    std::optional<PreparedMembers> members;
    std::optional<SearchQuery> search;
};

namespace {

constexpr std::string_view modifierNames[] = {"", "ALL ", "ANY "};

std::string_view nameOf(Operator type) {
    constexpr std::string_view names[] = {"<", "<=", ">", ">=", "==", "!=", "MATCHES", "LIKE", "BEGINSWITH", "ENDSWITH", "IN"};
    if (type == Operator::Contains) return "CONTAINS";
    if (type == Operator::Finds) return "FINDS";
    return type == Operator::Between ? "BETWEEN" : names[static_cast<std::size_t>(type)];
}

std::string optionsText(TextOptions options) {
    std::string letters;
    if (has(options, TextOptions::CaseInsensitive)) letters += 'c';
    if (has(options, TextOptions::DiacriticInsensitive)) letters += 'd';
    if (has(options, TextOptions::Normalized)) letters += 'n';
    return letters.empty() ? letters : "[" + letters + "]";
}

bool isList(Value const& value) { return value.kind() == Kind::List || value.kind() == Kind::Set; }

} // namespace

NSComparisonPredicate::NSComparisonPredicate() { type_ = NSPredicateType::Comparison; }
NSComparisonPredicate::~NSComparisonPredicate() = default;

Ref<NSComparisonPredicate> NSComparisonPredicate::predicateWithLeftExpression(Ref<NSExpression> left, Ref<NSExpression> right,
                                                                              Operator type, Modifier modifier,
                                                                              TextOptions options) {
    return make<NSComparisonPredicate>(std::move(left), std::move(right), modifier, type, options);
}

std::string NSComparisonPredicate::problemWith(NSExpression const& right, Operator type) {
    if (right.expressionType() == NSExpressionType::Aggregate && type == Operator::Between && right.collection().size() != 2)
        return "BETWEEN needs two bounds";
    if (right.expressionType() != NSExpressionType::ConstantValue) return {};
    auto const& value = right.constantValue();
    if (type == Operator::Between && value.list().size() != 2) return "BETWEEN needs a list of two bounds";
    if (type == Operator::Matches && value.isText() && !TextPattern::compile(value.text()))
        return "the pattern \"" + std::string{value.text()} + "\" is malformed";
    return {};
}

void NSComparisonPredicate::init(Ref<NSExpression> left, Ref<NSExpression> right, Modifier modifier, Operator type,
                                 TextOptions options) {
    NSPredicate::init(true);
    if (!left || !right) fatal("a comparison predicate was given a null expression");
    if (auto const problem = problemWith(*right, type); !problem.empty())
        fatal("a comparison predicate cannot be made: " + problem);
    left_ = std::move(left);
    right_ = std::move(right);
    modifier_ = modifier;
    operator_ = type;
    options_ = type == Operator::Finds ? TextOptions::None : options;
    if (!right_->isConstant()) return;
    auto prepared = std::make_unique<Prepared>();
    prepared->right = right_->expressionValueWithObject({});
    if (prepared->right.isText() && type == Operator::Finds)
        prepared->search.emplace(prepared->right.text());
    else if (prepared->right.isText() && type == Operator::Matches)
        prepared->pattern = TextPattern::compile(prepared->right.text(), options);
    else if (prepared->right.isText() && options != TextOptions::None)
        prepared->folded = foldedText(prepared->right.text(), options);
    else if (isList(prepared->right) && type == Operator::In)
        prepared->members.emplace(prepared->right, options);
    prepared_ = std::move(prepared);
}

bool NSComparisonPredicate::evaluateWithObject(Value const& object) const {
    if (modifier_ == Modifier::Direct) return compare(left_->expressionValueWithObject(object), object);
    auto const left = left_->memberValuesWithObject(object);
    bool const wanted = modifier_ == Modifier::Any; // the outcome of one member that decides
    bool const undecided = forEachMember(left, [&](Value const& member) { return compare(member, object) != wanted; });
    return undecided ? !wanted : wanted;
}

bool NSComparisonPredicate::compare(Value const& left, Value const& object) const {
    if (!prepared_) return compareForPredicate(operator_, options_, left, right_->expressionValueWithObject(object));
    if (prepared_->members) return prepared_->members->contains(left);
    if (prepared_->search) return isFoundIn(*prepared_->search, left);
    if (left.isText()) {
        if (prepared_->pattern) return prepared_->pattern->matchesWhole(left.text());
        if (prepared_->folded) return compareFoldedTexts(operator_, FoldedText{left.text(), options_}.view(), *prepared_->folded);
        if (prepared_->right.isText()) return compareFoldedTexts(operator_, left.text(), prepared_->right.text());
    }
    return compareForPredicate(operator_, options_, left, prepared_->right);
}

void NSComparisonPredicate::collectKeyPaths(std::set<std::string>& paths) const {
    left_->collectKeyPaths(paths);
    right_->collectKeyPaths(paths);
}

Ref<NSPredicate> NSComparisonPredicate::predicateWithSubstitutionVariables(Dictionary const& values) const {
    auto const part = [&](Ref<NSExpression> const& each) { return each->hasVariables() ? each->substituted(values) : each; };
    return predicateWithLeftExpression(part(left_), part(right_), operator_, modifier_, options_);
}

std::string NSComparisonPredicate::predicateFormat() const {
    std::string text{modifierNames[static_cast<std::size_t>(modifier_)]};
    return text + left_->description() + " " + std::string{nameOf(operator_)} + optionsText(options_) + " " +
           right_->description();
}

bool NSComparisonPredicate::isEqual(NSObject const& object) const {
    auto const* other = dynamic_cast<NSComparisonPredicate const*>(&object);
    return other && operator_ == other->operator_ && modifier_ == other->modifier_ && options_ == other->options_ &&
           equal(left_, other->left_) && equal(right_, other->right_);
}

std::size_t NSComparisonPredicate::hash() const {
    return left_->hash() * 31 + right_->hash() + static_cast<std::size_t>(operator_);
}

} // namespace Tessarin
