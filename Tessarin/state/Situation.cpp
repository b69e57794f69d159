#include "Tessarin/state/Situation.h"

#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>
#include <deque>
#include <ostream>

namespace Tessarin {
namespace {

/// Adds `step`, or ends the process.
void count(std::int64_t& counter, std::int64_t step, char const* operation) {
    if (__builtin_add_overflow(counter, step, &counter)) fatal(std::string{"Situation."} + operation + ": a count overflows");
}

/// Whether nobody overrides the access to its list, so that it needs no copy to be changed.
bool isPlain(Situation const& situation) { return typeid(situation) == typeid(detail::Made<Situation>); }

using Work = Ref<Closure<void()> const>;

Work shared(Closure<void()> work) { return std::make_shared<Closure<void()> const>(std::move(work)); }

/// A closure cannot be copied, and may be running; so it is changed as one that calls it.
Closure<void()> callOf(Work const& work) {
    if (!*work) return {};
    return [work] { (*work)(); };
}

} // namespace

/// They are met in their order, so it is always the first that goes.
struct Situation::Pending {
    std::deque<Ref<Condition>> conditions;
};

Situation::Situation() : pending_(std::make_unique<Pending>()) {}
Situation::~Situation() = default;

void Situation::init() {
    workQueue_ = make<Dispatcher>(QueueOptions{.identifier = "Situation"});
    syncQueue_ = make<Dispatcher>(QueueOptions{.identifier = "Situation"});
    setCompletion({});
}

void Situation::modifyLocked(FunctionRef<void(bool&)> change) {
    auto changed = locked();
    change(changed);
    setLocked(changed);
}

void Situation::setCompletion(Closure<void()> completion) { completion_ = shared(std::move(completion)); }

void Situation::modifyCompletion(FunctionRef<void(Closure<void()>&)> change) {
    auto changed = callOf(completion_);
    change(changed);
    setCompletion(std::move(changed));
}

std::vector<Ref<Condition>> Situation::pendingConditions() const {
    return {pending_->conditions.begin(), pending_->conditions.end()};
}
void Situation::setPendingConditions(std::vector<Ref<Condition>> conditions) {
    std::erase(conditions, nullptr);
    pending_->conditions.assign(conditions.begin(), conditions.end());
}
void Situation::modifyPendingConditions(FunctionRef<void(std::vector<Ref<Condition>>&)> change) {
    auto changed = pendingConditions();
    change(changed);
    setPendingConditions(std::move(changed));
}

void Situation::addCondition(Ref<Condition> condition) {
    if (!condition) fatal("Situation.addCondition: there is no condition");
    condition->setSituation(shared_from_this());
    syncQueue_->sync([&] {
        count(pendingCount_, 1, "addCondition");
        if (isPlain(*this)) return pending_->conditions.push_back(condition);
        modifyPendingConditions([&](auto& pending) { pending.push_back(condition); });
    });
    workQueue_->async([condition = std::move(condition)] { condition->start(); });
}

void Situation::addCondition(Closure<void()> work) { addCondition(make<Condition>(std::nullopt, std::move(work))); }

void Situation::fulfill(Ref<Condition> condition) {
    // Whether it is pending at all is not asked, on purpose: a condition that is met twice is counted twice, below zero even,
    // and completes once more what is complete already.
    syncQueue_->async([self = shared_from_this(), condition = std::move(condition)] {
        count(self->pendingCount_, -1, "fulfill");
        count(self->completedCount_, 1, "fulfill");
        auto const remove = [&](auto& pending) {
            if (auto const found = std::ranges::find(pending, condition); found != pending.end()) pending.erase(found);
            return pending.empty();
        };
        if (isPlain(*self)) {
            if (!remove(self->pending_->conditions)) return;
        } else {
            self->modifyPendingConditions(remove);
            if (!self->pendingConditions().empty()) return;
        }
        auto const kept = self->completion_; // stays set, for the next time, unless it sets another one
        if (auto const& completion = self->completion()) completion();
    });
}

std::string Situation::description() const {
    return "Situation: " + std::to_string(pendingCount()) + " pending, " + std::to_string(completedCount()) + " completed";
}

Condition::Condition() = default;
Condition::~Condition() = default;

void Condition::init(std::optional<std::string> label) {
    label_ = std::move(label);
    setWorkClosure({});
}
void Condition::init(std::optional<std::string> label, Closure<void()> work) {
    label_ = std::move(label);
    setWorkClosure(std::move(work));
}

void Condition::setWorkClosure(Closure<void()> work) { workClosure_ = shared(std::move(work)); }

void Condition::modifySituation(FunctionRef<void(Ref<Situation>&)> change) {
    auto changed = situation();
    change(changed);
    setSituation(std::move(changed));
}

void Condition::modifyWorkClosure(FunctionRef<void(Closure<void()>&)> change) {
    auto changed = callOf(workClosure_);
    change(changed);
    setWorkClosure(std::move(changed));
}

void Condition::modifyStarted(FunctionRef<void(bool&)> change) {
    auto changed = started();
    change(changed);
    setStarted(changed);
}

void Condition::modifyLabel(FunctionRef<void(std::optional<std::string>&)> change) {
    auto changed = label();
    change(changed);
    setLabel(std::move(changed));
}

void Condition::met() {
    if (!situation()) fatal("Condition.met: the condition was never added to a situation");
    situation()->fulfill(shared_from_this());
}

void Condition::start() {
    if (started()) return;
    setStarted(true);
    auto const kept = workClosure_; // the work may set another one
    if (workClosure()) workClosure()();
    met();
}

std::string Condition::description() const { return label().value_or("Condition"); }

std::ostream& operator<<(std::ostream& out, Situation const& situation) { return out << situation.description(); }
std::ostream& operator<<(std::ostream& out, Condition const& condition) { return out << condition.description(); }

} // namespace Tessarin
