#pragma once
#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/foundation/predicates/TextFolding.h"

namespace Tessarin {

enum class NSPredicateOperatorType : int {
    LessThan = 0,
    LessThanOrEqualTo = 1,
    GreaterThan = 2,
    GreaterThanOrEqualTo = 3,
    EqualTo = 4,
    NotEqualTo = 5,
    Matches = 6,
    Like = 7,
    BeginsWith = 8,
    EndsWith = 9,
    In = 10,
    Contains = 99,
    Between = 100,
    Finds = 101
};

/// Whether the left side is compared itself, or each of its members: a list, a set or one value; an absent one has none.
enum class NSComparisonPredicateModifier : int { Direct = 0, All = 1, Any = 2 };

/// A comparison of two expressions. Texts compare by their bytes, or folded as the options say; numbers of all kinds by
/// size; an object equals another that stands for the same record.
///
/// - IN: the right side is a list or set with the left side among its members, or a text that contains the left side.
/// - CONTAINS: the same with the sides exchanged.
/// - BETWEEN: the right side is a list of two bounds, both inclusive.
/// - LIKE: "*" stands for any characters, "?" for one, "\" takes the next as it is; MATCHES is a regular expression. Both
///   for the whole text.
/// - FINDS: the left side, a text or a list of texts, has all words of the right one, the last perhaps as the beginning of a word
///   (`SearchQuery`). Options make no difference. `{title, text} FINDS "jane pri"` looks at both together.
class TESSARIN_API NSComparisonPredicate : public NSPredicate {
public:
    static Ref<NSComparisonPredicate>
    predicateWithLeftExpression(Ref<NSExpression> left, Ref<NSExpression> right, NSPredicateOperatorType type,
                                NSComparisonPredicateModifier modifier = NSComparisonPredicateModifier::Direct,
                                TextOptions options = TextOptions::None);

    Ref<NSExpression> const& leftExpression() const noexcept { return left_; }
    Ref<NSExpression> const& rightExpression() const noexcept { return right_; }
    NSPredicateOperatorType predicateOperatorType() const noexcept { return operator_; }
    NSComparisonPredicateModifier comparisonPredicateModifier() const noexcept { return modifier_; }
    TextOptions options() const noexcept { return options_; }

    bool evaluateWithObject(Value const& object) const override;
    void collectKeyPaths(std::set<std::string>& paths) const override;
    Ref<NSPredicate> predicateWithSubstitutionVariables(Dictionary const& values) const override;
    std::string predicateFormat() const override;
    bool isEqual(NSObject const& other) const override;
    std::size_t hash() const override;

    /// What is wrong with comparing so: a malformed pattern, bounds that are not two. Empty when nothing is.
    static std::string problemWith(NSExpression const& right, NSPredicateOperatorType type);

    using NSPredicate::init;
    /// Fatal when `problemWith` has something to say.
    virtual void init(Ref<NSExpression> left, Ref<NSExpression> right, NSComparisonPredicateModifier modifier,
                      NSPredicateOperatorType type, TextOptions options);
    ~NSComparisonPredicate() override;

protected:
    NSComparisonPredicate();

private:
    bool compare(Value const& left, Value const& object) const;

    Ref<NSExpression> left_, right_; // all constant after init
    NSPredicateOperatorType operator_ = NSPredicateOperatorType::EqualTo;
    NSComparisonPredicateModifier modifier_ = NSComparisonPredicateModifier::Direct;
    TextOptions options_ = TextOptions::None;
    struct Prepared;
    std::unique_ptr<Prepared const> prepared_; // the right side, when it is constant
};

} // namespace Tessarin
