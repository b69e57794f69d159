#pragma once
#include "Tessarin/platform/foundation/NSPredicate.h"

namespace Tessarin {

enum class NSCompoundPredicateType : int { Not = 0, And = 1, Or = 2 };

/// Conditions joined. The first that decides ends the evaluation; AND of none is true, OR of none false.
class TESSARIN_API NSCompoundPredicate : public NSPredicate {
public:
    static Ref<NSCompoundPredicate> andPredicateWithSubpredicates(std::vector<Ref<NSPredicate>> subpredicates);
    static Ref<NSCompoundPredicate> orPredicateWithSubpredicates(std::vector<Ref<NSPredicate>> subpredicates);
    static Ref<NSCompoundPredicate> notPredicateWithSubpredicate(Ref<NSPredicate> subpredicate);

    NSCompoundPredicateType compoundPredicateType() const noexcept { return join_; }
    std::span<Ref<NSPredicate> const> subpredicates() const noexcept { return subpredicates_; }

    bool evaluateWithObject(Value const& object) const override;
    void collectKeyPaths(std::set<std::string>& paths) const override;
    Ref<NSPredicate> predicateWithSubstitutionVariables(Dictionary const& values) const override;
    std::string predicateFormat() const override;
    bool isEqual(NSObject const& other) const override;
    std::size_t hash() const override;

    using NSPredicate::init;
    /// NOT takes exactly one; anything else is fatal, and so is a null among them.
    virtual void init(NSCompoundPredicateType type, std::vector<Ref<NSPredicate>> subpredicates);

protected:
    NSCompoundPredicate() { type_ = NSPredicateType::Compound; }

private:
    NSCompoundPredicateType join_ = NSCompoundPredicateType::And; // both constant after init
    std::vector<Ref<NSPredicate>> subpredicates_;
};

} // namespace Tessarin
