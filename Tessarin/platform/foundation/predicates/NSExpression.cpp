#include "Tessarin/platform/foundation/predicates/NSExpression.h"

#include "Tessarin/platform/foundation/predicates/PredicateFormatPrivate.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>
#include <cmath>

namespace Tessarin {
namespace {

constexpr std::size_t deepestNesting = 1000; // each level takes some of the stack, in whatever walks through it

bool isNotANumber(Value const& value) {
    return (value.isNumber() && std::isnan(value.number())) || std::isnan(value.dateSeconds());
}

Value withoutNaN(Value value) {
    if (isNotANumber(value)) return {};
    if (std::ranges::any_of(value.list(), isNotANumber)) {
        auto members = value.list();
        std::ranges::replace_if(members, isNotANumber, Value());
        return members;
    }
    if (std::ranges::any_of(value.set(), isNotANumber)) {
        ValueSet members;
        for (auto const& member : value.set()) members.insert(isNotANumber(member) ? Value() : member);
        return members;
    }
    return value;
}

std::size_t depthOf(NSExpression const& expression) {
    std::size_t depth = expression.operand() ? depthOf(*expression.operand()) : 0;
    for (auto const& member : expression.collection()) depth = std::max(depth, depthOf(*member));
    return depth + 1;
}

void requireShallow(NSExpression const& made) {
    if (depthOf(made) > deepestNesting) fatal("an expression is nested more than 1,000 deep");
}

} // namespace

void NSExpression::init(NSExpressionType type) {
    NSObject::init();
    type_ = type;
}

Ref<NSExpression> NSExpression::expressionForConstantValue(Value value) {
    auto expression = make<NSExpression>(NSExpressionType::ConstantValue);
    expression->constant_ = withoutNaN(std::move(value));
    return expression;
}

Ref<NSExpression> NSExpression::expressionForEvaluatedObject() { return make<NSExpression>(NSExpressionType::EvaluatedObject); }

Ref<NSExpression> NSExpression::expressionForVariable(std::string_view name) {
    auto expression = make<NSExpression>(NSExpressionType::Variable);
    expression->name_ = name;
    return expression;
}

Ref<NSExpression> NSExpression::expressionForKeyPath(std::string_view path, Ref<NSExpression> operand) {
    auto expression = make<NSExpression>(NSExpressionType::KeyPath);
    expression->path_ = KeyPath{path};
    expression->operand_ = std::move(operand);
    requireShallow(*expression);
    return expression;
}

Ref<NSExpression> NSExpression::expressionForAggregate(std::vector<Ref<NSExpression>> members) {
    auto expression = make<NSExpression>(NSExpressionType::Aggregate);
    expression->members_ = std::move(members);
    requireShallow(*expression);
    return expression;
}

Value NSExpression::expressionValueWithObject(Value const& object) const {
    switch (type_) {
    case NSExpressionType::ConstantValue: return constant_;
    case NSExpressionType::EvaluatedObject: return object;
    case NSExpressionType::KeyPath: return path_.valueFrom(operand_ ? operand_->expressionValueWithObject(object) : object);
    case NSExpressionType::Variable: fatal("no value was given for the variable $" + name_);
    case NSExpressionType::Aggregate: break;
    }
    List values;
    for (auto const& member : members_) values.push_back(member->expressionValueWithObject(object));
    return values;
}

Value NSExpression::memberValuesWithObject(Value const& object) const {
    if (type_ != NSExpressionType::KeyPath) return expressionValueWithObject(object);
    return path_.memberValuesFrom(operand_ ? operand_->expressionValueWithObject(object) : object);
}

/// Its path from the evaluated object; absent when it starts elsewhere.
std::optional<std::string> NSExpression::pathFromObject() const {
    if (type_ == NSExpressionType::EvaluatedObject) return std::string();
    if (type_ != NSExpressionType::KeyPath) return {};
    auto start = operand_ ? operand_->pathFromObject() : std::string();
    if (start && !start->empty()) *start += '.';
    if (start) *start += path_.text();
    return start;
}

bool NSExpression::isConstant() const noexcept {
    if (type_ == NSExpressionType::ConstantValue) return true;
    return type_ == NSExpressionType::Aggregate &&
           std::ranges::all_of(members_, [](auto const& member) { return member->isConstant(); });
}

void NSExpression::collectKeyPaths(std::set<std::string>& paths) const {
    if (auto path = pathFromObject(); path && !path->empty()) {
        paths.insert(std::move(*path));
        return;
    }
    if (operand_) operand_->collectKeyPaths(paths);
    for (auto const& member : members_) member->collectKeyPaths(paths);
}

bool NSExpression::hasVariables() const noexcept {
    return type_ == NSExpressionType::Variable || (operand_ && operand_->hasVariables()) ||
           std::ranges::any_of(members_, [](auto const& member) { return member->hasVariables(); });
}

Ref<NSExpression> NSExpression::substituted(Dictionary const& values) const {
    auto const part = [&](Ref<NSExpression> const& each) { return each->hasVariables() ? each->substituted(values) : each; };
    if (type_ == NSExpressionType::Variable)
        if (auto const* value = values.find(name_)) return expressionForConstantValue(*value);
    auto copy = make<NSExpression>(type_);
    copy->constant_ = constant_;
    copy->name_ = name_;
    copy->path_ = path_;
    if (operand_) copy->operand_ = part(operand_);
    for (auto const& member : members_) copy->members_.push_back(part(member));
    return copy;
}

std::string NSExpression::description() const {
    switch (type_) {
    case NSExpressionType::ConstantValue: return formatOfValue(constant_);
    case NSExpressionType::EvaluatedObject: return "SELF";
    case NSExpressionType::Variable: return "$" + name_;
    case NSExpressionType::KeyPath: return (operand_ ? operand_->description() + "." : "") + formatOfKeyPath(path_);
    case NSExpressionType::Aggregate: break;
    }
    std::string text = "{";
    for (auto const& member : members_) text += (text.size() > 1 ? ", " : "") + member->description();
    return text + "}";
}

bool NSExpression::isEqual(NSObject const& object) const {
    auto const* other = dynamic_cast<NSExpression const*>(&object);
    auto const same = [](auto const& a, auto const& b) { return equal(a, b); };
    return other && type_ == other->type_ && constant_ == other->constant_ && name_ == other->name_ && path_ == other->path_ &&
           equal(operand_, other->operand_) && std::ranges::equal(members_, other->members_, same);
}

std::size_t NSExpression::hash() const {
    return std::hash<std::string>{}(path_.text() + name_) + constant_.hash() + members_.size();
}

std::span<Ref<NSExpression> const> NSExpression::collection() const noexcept { return members_; }

} // namespace Tessarin
