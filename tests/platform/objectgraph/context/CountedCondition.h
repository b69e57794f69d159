#pragma once
#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/queues/Queue.h"
#include <atomic>

namespace Tessarin::tests {

/// A condition that counts how often it is asked while a queue is held.
class Counted : public NSComparisonPredicate {
public:
    bool evaluateWithObject(Value const& object) const override {
        (queueIsHeld(queue) ? asked : askedElsewhere).fetch_add(1);
        return NSComparisonPredicate::evaluateWithObject(object);
    }
    dispatch_queue_t queue = nullptr;
    mutable std::atomic<int> asked = 0, askedElsewhere = 0;
};

inline Ref<Counted> counted(char const* key, NSPredicateOperatorType type, Value constant, dispatch_queue_t queue) {
    auto predicate =
        make<Counted>(NSExpression::expressionForKeyPath(key), NSExpression::expressionForConstantValue(std::move(constant)),
                      NSComparisonPredicateModifier::Direct, type, TextOptions::None);
    predicate->queue = queue;
    return predicate;
}

} // namespace Tessarin::tests
