#pragma once
#include "Tessarin/platform/foundation/predicates/NSPredicate.h"

namespace Tessarin {

enum class NSCompoundPredicateType : int { Not = 0, And = 1, Or = 2 };

/// Conditions joined. The first that decides ends the evaluation; AND of none is true, OR of none false. They may be nested to
/// any depth; a request takes 500 levels, and one that is deeper describes itself as "…".
class TESSARIN_API NSCompoundPredicate : public NSPredicate {
public:
    static Ref<NSCompoundPredicate> andPredicateWithSubpredicates(std::vector<Ref<NSPredicate>> subpredicates);
    static Ref<NSCompoundPredicate> orPredicateWithSubpredicates(std::vector<Ref<NSPredicate>> subpredicates);
    static Ref<NSCompoundPredicate> notPredicateWithSubpredicate(Ref<NSPredicate> subpredicate);

    NSCompoundPredicateType compoundPredicateType() const noexcept { return join_; }
    std::span<Ref<NSPredicate> const> subpredicates() const noexcept;
    /// How many levels of compound predicates this is, itself one of them.
    std::size_t depth() const noexcept { return depth_; }

    bool evaluateWithObject(Value const& object) const override;
    void collectKeyPaths(std::set<std::string>& paths) const override;
    Ref<NSPredicate> predicateWithSubstitutionVariables(Dictionary const& values) const override;
    std::string predicateFormat() const override;
    bool isEqual(NSObject const& other) const override;
    std::size_t hash() const override;

    using NSPredicate::init;
    /// NOT takes exactly one; anything else is fatal, and so is a null among them.
    virtual void init(NSCompoundPredicateType type, std::vector<Ref<NSPredicate>> subpredicates);
    ~NSCompoundPredicate() override;

protected:
    NSCompoundPredicate() { type_ = NSPredicateType::Compound; }

private:
    bool isDeep() const noexcept;
    bool isDecidedBy(bool part) const noexcept { return join_ == NSCompoundPredicateType::Or ? part : !part; }
    bool evaluateDeep(Value const& object) const;
    bool isEqualDeep(NSCompoundPredicate const& other) const;
    Ref<NSPredicate> substituteDeep(Dictionary const& values) const;

    NSCompoundPredicateType join_ = NSCompoundPredicateType::And; // all constant after init
    std::vector<Ref<NSPredicate>> subpredicates_;
    std::size_t depth_ = 1;
};

} // namespace Tessarin
