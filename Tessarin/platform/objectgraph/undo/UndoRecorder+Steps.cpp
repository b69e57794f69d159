// The steps: when one is over, where it is kept, and what becomes of it.
#include "Tessarin/platform/objectgraph/undo/UndoApplicationPrivate.h"
#include "Tessarin/platform/objectgraph/undo/UndoRecorderPrivate.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>

namespace Tessarin {

void UndoManager::Inside::push(Steps& steps, Ref<UndoStep> step) {
    steps.push_back(std::move(step));
    while (limit_ != 0 && steps.size() > limit_) steps.pop_front();
}

void UndoManager::Inside::closeIntoUndo() {
    if (auto step = close()) {
        push(undo_, std::move(step));
        redo_.clear();
    }
    awaitEndOfTurn();
}

void UndoManager::Inside::beginGroup() {
    if (groups_++ == 0) closeIntoUndo();
}

void UndoManager::Inside::endGroup() {
    if (groups_ == 0) fatal("an undo group ends that was not begun");
    if (--groups_ != 0) return;
    closeIntoUndo();
    nextName_.clear();
}

void UndoManager::Inside::setName(std::string name) {
    nextName_ = std::move(name);
    if (open_) open_->step.name = nextName_;
    awaitEndOfTurn();
}

void UndoManager::Inside::setLimit(std::size_t count) {
    limit_ = count;
    for (auto* steps : {&undo_, &redo_})
        while (limit_ != 0 && steps->size() > limit_) steps->pop_front();
    awaitEndOfTurn();
}

void UndoManager::Inside::forgetAll() {
    undo_.clear();
    redo_.clear();
    open_.reset();
    lost_.clear();
    aliases_.clear();
    imports_.clear();
    awaitEndOfTurn();
}

bool UndoManager::Inside::takeBack(Steps& from, Steps& to) {
    auto* state = context();
    if (!state || isTakingBack_ || !isRecording()) return false;
    if (groups_ != 0) fatal("an undo group is open, so nothing can be undone or redone");
    closeIntoUndo();
    if (from.empty()) return false;
    struct TakingBack {
        explicit TakingBack(bool& taking) : flag(taking) { flag = true; }
        ~TakingBack() { flag = false; }
        bool& flag;
    } const taking(isTakingBack_);
    auto const step = from.back();
    open().step.name = step->name;
    open().step.expectInverseOf(*step);
    auto const finish = [&] {
        auto made = close();
        if (made) push(to, made);
        return made != nullptr;
    };
    try {
        bool const hasOtherKeys = step->takeKeys([this](RecordKey key) { return current(key); });
        if (hasOtherKeys || step->importStep) step->fold(); // an import of several saves is joined here
        UndoApplication(
            *state, *step, [this](RecordKey key) { return current(key); }, [this](RecordKey key) { return isLost(key); })
            .run();
    } catch (...) { // the store cannot be read: what is left of the step can be tried again
        finish();
        awaitEndOfTurn();
        throw;
    }
    std::erase(from, step);
    nextName_.clear();
    awaitEndOfTurn();
    return finish();
}

void UndoManager::Inside::follow(ContextTurn const&) {
    if (groups_ == 0 && !isTakingBack_) {
        closeIntoUndo();
        nextName_.clear();
    }
    tell();
}

void UndoManager::Inside::awaitEndOfTurn() {
    if (observers_.empty() && nextName_.empty()) return;
    if (auto* state = context(); state && answers() != told_) state->feed.awaitEnd(*state);
}

UndoManager::Inside::Answers UndoManager::Inside::answers() const {
    return {owner_.canUndo(), owner_.canRedo(), owner_.undoActionName(), owner_.redoActionName()};
}

void UndoManager::Inside::tell() {
    auto now = answers();
    if (std::exchange(told_, now) == now) return;
    std::erase_if(observers_, [](auto const& each) { return each.expired(); });
    for (auto const& each : std::vector(observers_)) // who is told may come and go
        if (auto const told = each.lock()) (*told)();
}

ScopedConnection UndoManager::Inside::observe(Told told) {
    auto observer = std::make_shared<Told>(std::move(told));
    observers_.push_back(observer);
    return ScopedConnection(std::move(observer));
}

} // namespace Tessarin
