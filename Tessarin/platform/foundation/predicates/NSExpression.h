#pragma once
#include "Tessarin/platform/foundation/predicates/KeyPath.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <optional>
#include <set>

namespace Tessarin {

enum class NSExpressionType : int { ConstantValue = 0, EvaluatedObject = 1, Variable = 2, KeyPath = 3, Aggregate = 14 };

/// One side of a comparison: a constant, the object itself, a key path from it, a variable or a list of expressions.
/// Immutable; any thread. Fatal when it is nested more than 1,000 deep; a format never is.
///
///     NSExpression::expressionForKeyPath("author.name")->expressionValueWithObject(book);
class TESSARIN_API NSExpression : public NSObject {
public:
    /// A number or date that is NaN stands for an absent value, in lists and sets, too: that is what attributes make of it.
    static Ref<NSExpression> expressionForConstantValue(Value value);
    static Ref<NSExpression> expressionForEvaluatedObject();
    /// Stands for a value that is put in later, see `NSPredicate::predicateWithSubstitutionVariables`.
    static Ref<NSExpression> expressionForVariable(std::string_view name);
    /// The value at the end of a path from the object, or from what `operand` yields.
    static Ref<NSExpression> expressionForKeyPath(std::string_view path, Ref<NSExpression> operand = nullptr);
    static Ref<NSExpression> expressionForAggregate(std::vector<Ref<NSExpression>> members);

    NSExpressionType expressionType() const noexcept { return type_; }
    Value const& constantValue() const noexcept { return constant_; }
    std::string const& variable() const noexcept { return name_; } // without "$"
    KeyPath const& keyPath() const noexcept { return path_; }
    /// Where the key path starts; null for the evaluated object.
    Ref<NSExpression> const& operand() const noexcept { return operand_; }
    std::span<Ref<NSExpression> const> collection() const noexcept;

    /// Its value for `object`. Fatal for a variable, and where an object does not know a key.
    Value expressionValueWithObject(Value const& object) const;
    /// The same for the left side of ANY and ALL, see `KeyPath::memberValuesFrom`.
    Value memberValuesWithObject(Value const& object) const;
    /// Whether it is the same for every object.
    bool isConstant() const noexcept;
    /// Adds the key paths that start at the evaluated object.
    void collectKeyPaths(std::set<std::string>& paths) const;
    /// Whether a variable is anywhere in it.
    bool hasVariables() const noexcept;
    /// With constants in place of the variables that `values` holds.
    Ref<NSExpression> substituted(Dictionary const& values) const;

    /// The expression as a predicate format writes it.
    std::string description() const override;
    bool isEqual(NSObject const& other) const override;
    std::size_t hash() const override;

    using NSObject::init;
    virtual void init(NSExpressionType type);

protected:
    NSExpression() = default;

private:
    std::optional<std::string> pathFromObject() const;

    NSExpressionType type_ = NSExpressionType::EvaluatedObject; // all constant after creation
    Value constant_;
    std::string name_;
    KeyPath path_;
    Ref<NSExpression> operand_;
    std::vector<Ref<NSExpression>> members_;
};

} // namespace Tessarin
