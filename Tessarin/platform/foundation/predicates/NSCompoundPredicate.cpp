#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"

#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>
#include <set>

namespace Tessarin {

using Join = NSCompoundPredicateType;

void NSCompoundPredicate::init(NSCompoundPredicateType type, std::vector<Ref<NSPredicate>> subpredicates) {
    NSPredicate::init(true);
    if (std::ranges::find(subpredicates, nullptr) != subpredicates.end())
        fatal("a compound predicate was given a null predicate");
    if (type == Join::Not && subpredicates.size() != 1) fatal("a NOT predicate takes exactly one predicate");
    join_ = type;
    subpredicates_ = std::move(subpredicates);
    for (auto const& predicate : subpredicates_)
        if (auto const* compound = predicate->asCompound()) depth_ = std::max(depth_, compound->depth_ + 1);
}

Ref<NSCompoundPredicate> NSCompoundPredicate::andPredicateWithSubpredicates(std::vector<Ref<NSPredicate>> subpredicates) {
    return make<NSCompoundPredicate>(Join::And, std::move(subpredicates));
}

Ref<NSCompoundPredicate> NSCompoundPredicate::orPredicateWithSubpredicates(std::vector<Ref<NSPredicate>> subpredicates) {
    return make<NSCompoundPredicate>(Join::Or, std::move(subpredicates));
}

Ref<NSCompoundPredicate> NSCompoundPredicate::notPredicateWithSubpredicate(Ref<NSPredicate> subpredicate) {
    return make<NSCompoundPredicate>(Join::Not, std::vector{std::move(subpredicate)});
}

bool NSCompoundPredicate::evaluateWithObject(Value const& object) const {
    if (isDeep()) return evaluateDeep(object);
    auto const holds = [&](auto const& predicate) { return predicate->evaluateWithObject(object); };
    switch (join_) {
    case Join::And: return std::ranges::all_of(subpredicates_, holds);
    case Join::Or: return std::ranges::any_of(subpredicates_, holds);
    case Join::Not: break;
    }
    return !holds(subpredicates_.front());
}

void NSCompoundPredicate::collectKeyPaths(std::set<std::string>& paths) const {
    std::vector<NSCompoundPredicate const*> way{this};
    while (!way.empty()) {
        auto const& parts = way.back()->subpredicates_;
        way.pop_back();
        for (auto const& part : parts)
            if (auto const* compound = part->asCompound())
                way.push_back(compound);
            else
                part->collectKeyPaths(paths);
    }
}

Ref<NSPredicate> NSCompoundPredicate::predicateWithSubstitutionVariables(Dictionary const& values) const {
    if (isDeep()) return substituteDeep(values);
    std::vector<Ref<NSPredicate>> substituted;
    for (auto const& predicate : subpredicates_) substituted.push_back(predicate->predicateWithSubstitutionVariables(values));
    return make<NSCompoundPredicate>(join_, std::move(substituted));
}

std::string NSCompoundPredicate::predicateFormat() const {
    if (isDeep()) return "…"; // no format is nested as deeply
    auto const part = [](NSPredicate const& predicate) {
        auto const text = predicate.predicateFormat();
        return predicate.asCompound() ? "(" + text + ")" : text;
    };
    if (join_ == Join::Not) return "NOT " + part(*subpredicates_.front());
    if (subpredicates_.empty()) return join_ == Join::And ? "TRUEPREDICATE" : "FALSEPREDICATE";
    std::string text;
    for (auto const& predicate : subpredicates_) {
        if (!text.empty()) text += join_ == Join::And ? " AND " : " OR ";
        text += part(*predicate);
    }
    return text;
}

bool NSCompoundPredicate::isEqual(NSObject const& object) const {
    auto const* other = dynamic_cast<NSCompoundPredicate const*>(&object);
    if (other && isDeep()) return isEqualDeep(*other);
    auto const same = [](auto const& a, auto const& b) { return equal(a, b); };
    return other && join_ == other->join_ && std::ranges::equal(subpredicates_, other->subpredicates_, same);
}

std::size_t NSCompoundPredicate::hash() const {
    auto hash = static_cast<std::size_t>(join_);
    if (isDeep()) return hash * 31 + depth_;
    for (auto const& predicate : subpredicates_) hash = hash * 31 + predicate->hash();
    return hash;
}

std::span<Ref<NSPredicate> const> NSCompoundPredicate::subpredicates() const noexcept { return subpredicates_; }

} // namespace Tessarin
