#include "Tessarin/platform/objectgraph/persistence/rows/ChangeQuestionsPrivate.h"

#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"

#include <algorithm>

namespace Tessarin {
namespace {

constexpr std::size_t most = 16;       // that are remembered
constexpr std::uint32_t patience = 16; // sets that were made ready in vain

bool isSame(ChangeQuestions::Question const& a, ChangeQuestions::Question const& b) {
    return a.equal == b.equal && a.tree == b.tree &&
           std::ranges::equal(a.order, b.order, [](auto const& x, auto const& y) { return x->isEqual(*y); });
}

} // namespace

void ChangeQuestions::note(NSAttributeDescription const& equal) { note({&equal, nullptr, {}}); }

void ChangeQuestions::note(NSEntityDescription const& tree, std::span<Ref<NSSortDescriptor> const> order) {
    note({nullptr, &tree, {order.begin(), order.end()}});
}

void ChangeQuestions::note(Question question) {
    std::lock_guard const hold(mutex_);
    auto const known = std::ranges::find_if(asked_, [&](Asked const& each) { return isSame(each.question, question); });
    if (known != asked_.end()) {
        known->setsSince = 0;
        return;
    }
    if (asked_.size() == most) asked_.erase(std::ranges::max_element(asked_, {}, &Asked::setsSince));
    asked_.push_back({std::move(question)});
}

std::vector<ChangeQuestions::Question> ChangeQuestions::forNextSet() {
    std::vector<Question> questions;
    std::lock_guard const hold(mutex_);
    std::erase_if(asked_, [](Asked& each) { return ++each.setsSince > patience; });
    for (auto const& each : asked_) questions.push_back(each.question);
    return questions;
}

} // namespace Tessarin
