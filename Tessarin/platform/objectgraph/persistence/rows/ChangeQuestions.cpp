#include "Tessarin/platform/objectgraph/persistence/rows/ChangeQuestionsPrivate.h"

#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include "Tessarin/platform/objectgraph/model/NSRelationshipDescription.h"

#include <algorithm>
#include <utility>

namespace Tessarin {
namespace {

constexpr std::size_t most = 16;       // that are remembered
constexpr std::uint32_t patience = 16; // sets that were made ready in vain

} // namespace

NSEntityDescription const& ChangeQuestion::tree() const {
    return *(entity ? entity : equal ? equal->entity() : link.relationship->entity())->rootEntity();
}

bool ChangeQuestion::isAlike(ChangeQuestion const& other) const {
    return equal == other.equal && link.relationship == other.link.relationship && entity == other.entity &&
           (count == 0) == (other.count == 0) && equalTo == other.equalTo && Tessarin::equal(condition, other.condition) &&
           std::ranges::equal(order, other.order, [](auto const& x, auto const& y) { return x == y || x->isEqual(*y); });
}

/// Another time it may be another value, and the store knows other words by then. A look-up without an order is served by the
/// index.
void ChangeQuestions::note(ChangeQuestion const& question) {
    std::lock_guard const hold(mutex_);
    bool const hasIndex = question.equal || question.link.relationship;
    if (hasIndex) noteIndex(question.equal, question.link.relationship);
    bool const isLookUp = hasIndex && question.order.empty();
    if (!isLookUp) noteAlike(question);
}

void ChangeQuestions::noteIndex(NSAttributeDescription const* equal, NSRelationshipDescription const* link) {
    auto const known = std::ranges::find_if(asked_, [&](Asked const& each) {
        return !each.question.entity && each.question.equal == equal && each.question.link.relationship == link;
    });
    if (known != asked_.end()) return known->noteAgain();
    ChangeQuestion index;
    index.equal = equal;
    index.link.relationship = link;
    remember(std::move(index));
}

void ChangeQuestions::noteAlike(ChangeQuestion const& question) {
    auto const known = std::ranges::find_if(asked_, [&](Asked const& each) { return each.question.isAlike(question); });
    known != asked_.end() ? known->noteAgain() : remember(question);
}

void ChangeQuestions::remember(ChangeQuestion question) {
    auto const use = [](Asked const& each) { return std::pair(each.question.condition && each.times == 1, each.setsSince); };
    if (asked_.size() == most) asked_.erase(std::ranges::max_element(asked_, {}, use));
    question.ranking = nullptr;
    asked_.push_back({std::move(question)});
}

/// A condition is as long as a look at each record, and what somebody types is asked but once.
std::vector<ChangeQuestion> ChangeQuestions::forNextSet() {
    std::vector<ChangeQuestion> questions;
    std::lock_guard const hold(mutex_);
    std::erase_if(asked_, [](Asked& each) { return ++each.setsSince > patience; });
    for (auto const& each : asked_)
        if (!each.question.condition || each.times > 1) questions.push_back(each.question);
    return questions;
}

} // namespace Tessarin
