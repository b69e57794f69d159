#include "Tessarin/store/StoreClosingPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/stores/SaveDoorPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/objectgraph/undo/UndoManager.h"
#include "Tessarin/store/ImportGatePrivate.h"

#include <algorithm>
#include <utility>

// A save of a worker is published to the main context, whose save is queued by the did-save notification of the first, and so
// on up to the root. The rounds here follow that: imports that were asked for, blocks that were queued, the saves that climb
// (`saveDispatchGroup`), and what an earlier failure left at a level. From the blocks on nothing new sets out for the store: a
// save of a context's own changes says that the store is closed. Then the door is shut wholly, which works only between saves;
// should one have been under way, the levels are saved once more. Behind the shut door what is not pending is in the file.
namespace Tessarin {

void StoreClosing::add(Completion completion, WhenUnsaved whenUnsaved) {
    completions_.push_back(std::move(completion));
    givesUp_ = givesUp_ || whenUnsaved == WhenUnsaved::GiveUp;
    if (isClosed_) return end(nullptr);
    if (kept_) return;
    kept_ = store_.self<ManagedObjectStore>();
    begin();
}

void StoreClosing::then(void (StoreClosing::*step)()) {
    dispatch_async(store_.registry_, [closing = shared_from_this(), step] { (*closing.*step)(); });
}

void StoreClosing::after(dispatch_group_t const& group, void (StoreClosing::*step)()) {
    dispatch_group_notify(group, store_.registry_, [closing = shared_from_this(), step] { (*closing.*step)(); });
}

void StoreClosing::begin() {
    store_.imports_->holdBack([closing = shared_from_this()] { closing->runQueuedBlocks(); });
    auto const saved = dispatch_group_create(); // what an earlier failure left at the root keeps imports waiting
    if (store_.privateContext_->pendingSaves() != 0) save(*store_.privateContext_, saved);
}

/// Their saves are queued behind them, or part of them.
void StoreClosing::runQueuedBlocks() {
    auto contexts = levels();
    for (auto const& entry : store_.activeContexts())
        if (auto context = entry->context()) contexts.push_back(std::move(context));
    auto const group = dispatch_group_create();
    for (auto const& context : contexts) {
        dispatch_group_enter(group);
        context->performBlock([group] { dispatch_group_leave(group); });
    }
    after(group, &StoreClosing::letNothingSetOut);
}

void StoreClosing::letNothingSetOut() {
    store_.coordinator_->saves().narrow();
    after(store_.saveDispatchGroup_, &StoreClosing::saveLevels);
}

void StoreClosing::saveLevels() {
    problem_.set(nullptr);
    auto const group = dispatch_group_create();
    for (auto const& context : levels())
        if (context != store_.privateContext_ && context->pendingSaves() != 0) save(*context, group);
    dispatch_group_notify(group, store_.registry_, [closing = shared_from_this()] {
        closing->after(closing->store_.saveDispatchGroup_, &StoreClosing::saveRoot);
    });
}

void StoreClosing::saveRoot() {
    auto const group = dispatch_group_create();
    save(*store_.privateContext_, group);
    after(group, &StoreClosing::finish);
}

/// Those above workers, the root among them.
StoreClosing::Contexts StoreClosing::levels() const {
    Contexts found;
    auto const add = [&](Ref<NSManagedObjectContext> context) {
        for (; context && std::ranges::find(found, context) == found.end(); context = context->parentContext())
            found.push_back(context);
    };
    for (auto const& entry : store_.activeContexts())
        if (auto const context = entry->context()) add(context->parentContext());
    add(store_.mainThreadContext());
    add(store_.privateContext_);
    return found;
}

bool StoreClosing::isPending() const {
    return std::ranges::any_of(levels(), [](auto const& context) { return context->pendingSaves() != 0; });
}

void StoreClosing::save(NSManagedObjectContext& context, dispatch_group_t const& group) {
    dispatch_group_enter(group);
    context.performBlock([closing = shared_from_this(), &context, group] {
        Ref<NSError> error;
        if (context.pendingSaves() != 0 && !context.save(error)) closing->store_.imports_->saveHasFailed();
        if (!error && &context == closing->store_.privateContext_.get())
            for (auto const& reason : context.refusalReasons()) error = reason;
        if (error) closing->problem_.set(error);
        dispatch_group_leave(group);
    });
}

void StoreClosing::finish() {
    auto const problem = problem_.get();
    auto& door = store_.coordinator_->saves();
    if (problem && !givesUp_) {
        door.open();
        return end(problem);
    }
    if (!problem && isPending()) return saveLevels();
    if (!door.shut([closing = shared_from_this()] { closing->then(&StoreClosing::saveLevels); })) return;
    if (problem || !isPending()) return close();
    door.open();
    letNothingSetOut();
}

void StoreClosing::close() {
    store_.coordinator_->closeStore();
    isClosed_ = true;
    auto contexts = levels();
    for (auto const& entry : store_.activeContexts())
        if (auto worker = entry->context()) contexts.push_back(std::move(worker));
    for (auto const& context : contexts) context->performBlock([context] { UndoManager::removeAllOf(*context); });
    store_.removeAsObserver(NSManagedObjectContextDidSaveNotification);
    store_.setActiveContexts({}); // whose entries keep the store
    end(problem_.get());
}

void StoreClosing::end(Ref<NSError> const& error) {
    using Start = ImportGate::Start;
    store_.imports_->goOn(isClosed_ ? Start::Always : Start::AsBefore);
    for (auto& completion : std::exchange(completions_, {}))
        if (completion) Dispatcher::main()->async([completion = std::move(completion), error] { completion(error); });
    givesUp_ = false;
    kept_.reset();
}

} // namespace Tessarin
