#include "Tessarin/platform/objectgraph/undo/UndoManager.h"

#include "Tessarin/platform/objectgraph/undo/UndoRecorderPrivate.h"
#include "Tessarin/platform/runtime/Fatal.h"

namespace Tessarin {

UndoManager::UndoManager() = default;
UndoManager::~UndoManager() = default;

void UndoManager::init(Ref<NSManagedObjectContext> context) {
    auto& state = GraphAccess::state(*context);
    if (!state.link) fatal("a context has an undo manager once it has a parent or a coordinator");
    inside_ = std::make_unique<Inside>(*this, state.link);
    state.recorder = Ref<ChangeRecorder>(self<UndoManager>(), inside_.get());
    state.feed.add(Ref<ContextFollower>(self<UndoManager>(), inside_.get()));
}

Ref<UndoManager> NSManagedObjectContext::undoManager() {
    if (auto const* present = static_cast<UndoManager::Inside*>(state_->recorder.get()))
        return present->owner().self<UndoManager>();
    return make<UndoManager>(self<NSManagedObjectContext>());
}

bool UndoManager::canUndo() const { return inside_->context() && (inside_->openStep() || !inside_->undoSteps().empty()); }
bool UndoManager::canRedo() const { return inside_->context() && !inside_->openStep() && !inside_->redoSteps().empty(); }
bool UndoManager::undo() { return inside_->undo(); }
bool UndoManager::redo() { return inside_->redo(); }
void UndoManager::beginGroup() { inside_->beginGroup(); }
void UndoManager::endGroup() { inside_->endGroup(); }
void UndoManager::setActionName(std::string name) { inside_->setName(std::move(name)); }

std::string UndoManager::undoActionName() const {
    if (!canUndo()) return {};
    return inside_->openStep() ? inside_->openStep()->name : inside_->undoSteps().back()->name;
}
std::string UndoManager::redoActionName() const { return canRedo() ? inside_->redoSteps().back()->name : std::string(); }

void UndoManager::setLimit(std::size_t count) { inside_->setLimit(count); }
std::size_t UndoManager::limit() const noexcept { return inside_->limit(); }
void UndoManager::removeAll() { inside_->forgetAll(); }
void UndoManager::removeAllOf(NSManagedObjectContext& context) {
    if (auto const& recorder = GraphAccess::state(context).recorder) recorder->forgetAll();
}

void UndoManager::withoutRegistration(FunctionRef<void()> work) {
    RecordingPause const pause(inside_.get());
    work();
}

ScopedConnection UndoManager::observe(Closure<void()> told) { return inside_->observe(std::move(told)); }

} // namespace Tessarin
