// Predicates that are nested so deeply that a function which calls itself for each level would run out of stack.
#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"

namespace Tessarin {
namespace {

constexpr std::size_t deepestRecursion = 500;

struct Place {
    NSCompoundPredicate const* predicate;
    std::size_t next = 0; // of its subpredicates
};

} // namespace

/// What it alone held goes one after the other; the ends of those add theirs to the list instead of nesting.
NSCompoundPredicate::~NSCompoundPredicate() {
    thread_local std::vector<Ref<NSPredicate>>* going = nullptr;
    if (going) {
        going->insert(going->end(), std::move_iterator(subpredicates_.begin()), std::move_iterator(subpredicates_.end()));
        return;
    }
    auto all = std::move(subpredicates_);
    going = &all;
    while (!all.empty()) {
        auto const last = std::move(all.back());
        all.pop_back();
    }
    going = nullptr;
}

bool NSCompoundPredicate::isDeep() const noexcept { return depth_ > deepestRecursion; }

bool NSCompoundPredicate::evaluateDeep(Value const& object) const {
    std::vector<Place> way{{this}};
    bool answer = true; // of what was looked at last
    while (!way.empty()) {
        auto& [predicate, next] = way.back();
        bool const isNot = predicate->join_ == NSCompoundPredicateType::Not;
        bool const isDecided = next > 0 && (isNot || predicate->isDecidedBy(answer));
        if (isDecided || next == predicate->subpredicates_.size()) {
            answer = isNot ? !answer : isDecided == (predicate->join_ == NSCompoundPredicateType::Or);
            way.pop_back();
            continue;
        }
        auto const& part = *predicate->subpredicates_[next++];
        auto const* compound = part.asCompound();
        if (compound && compound->isDeep())
            way.push_back({compound});
        else
            answer = part.evaluateWithObject(object);
    }
    return answer;
}

bool NSCompoundPredicate::isEqualDeep(NSCompoundPredicate const& other) const {
    std::vector<std::pair<NSCompoundPredicate const*, NSCompoundPredicate const*>> pairs{{this, &other}};
    while (!pairs.empty()) {
        auto const [a, b] = pairs.back();
        pairs.pop_back();
        if (a == b) continue;
        if (a->join_ != b->join_ || a->depth_ != b->depth_ || a->subpredicates_.size() != b->subpredicates_.size()) return false;
        for (std::size_t at = 0; at < a->subpredicates_.size(); ++at) {
            auto const &mine = *a->subpredicates_[at], &theirs = *b->subpredicates_[at];
            if (mine.asCompound() && theirs.asCompound() && mine.asCompound()->isDeep())
                pairs.emplace_back(mine.asCompound(), theirs.asCompound());
            else if (!mine.isEqual(theirs))
                return false;
        }
    }
    return true;
}

Ref<NSPredicate> NSCompoundPredicate::substituteDeep(Dictionary const& values) const {
    struct Copy {
        NSCompoundPredicate const* predicate;
        std::vector<Ref<NSPredicate>> parts; // so many of its subpredicates are copied
    };
    std::vector<Copy> way;
    way.push_back({this, {}});
    for (;;) {
        auto& [predicate, parts] = way.back();
        if (parts.size() == predicate->subpredicates_.size()) {
            Ref<NSPredicate> copy = make<NSCompoundPredicate>(predicate->join_, std::move(parts));
            way.pop_back();
            if (way.empty()) return copy;
            way.back().parts.push_back(std::move(copy));
            continue;
        }
        auto const& part = *predicate->subpredicates_[parts.size()];
        auto const* compound = part.asCompound();
        if (compound && compound->isDeep())
            way.push_back({compound, {}});
        else
            parts.push_back(part.predicateWithSubstitutionVariables(values));
    }
}

} // namespace Tessarin
