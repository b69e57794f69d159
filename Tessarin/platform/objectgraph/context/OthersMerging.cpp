#include "Tessarin/platform/objectgraph/context/OthersMergingPrivate.h"

#include "Tessarin/platform/objectgraph/context/MergingPrivate.h"
#include "Tessarin/platform/objectgraph/context/RefreshingPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/queues/Dispatch.h"

namespace Tessarin {
namespace {

/// What nobody could name: each object is read again. One with unsaved changes stays as it is, for its save to meet the conflict.
void refreshEverything(NSManagedObjectContext& context) {
    auto& state = GraphAccess::state(context);
    state.feed.noteEverything(state);
    auto objects = context.registeredObjects();
    std::erase_if(objects,
                  [](auto const& object) { return GraphAccess::state(*object).has(ObjectState::Changed) || object->isFault(); });
    refreshObjects(state, objects);
    for (auto const& child : state.published.readers()) child->performBlock([child] { refreshEverything(*child); });
}

class Taker final : public OthersChangesTaker {
public:
    explicit Taker(Ref<NSManagedObjectContext> const& context) : context_(context) {}

    void take(Ref<ChangeSet const> const& set) override {
        if (auto const context = context_.lock())
            context->performBlock([context, set] { mergeCorrections(GraphAccess::state(*context), set); });
    }
    void takeEverything() override {
        if (auto const context = context_.lock())
            context->performBlock([context] {
                try {
                    refreshEverything(*context);
                } catch (ErrorException const&) { // it cannot be read now: whoever uses the objects is told
                }
            });
    }

private:
    WeakRef<NSManagedObjectContext> const context_;
};

} // namespace

void joinOthers(Ref<NSManagedObjectContext> const& root, ContextState& state) {
    state.othersTaker = std::make_shared<Taker>(root);
    state.coordinator->space()->others().add(state.othersTaker);
}

Ref<ChangeOrigin const> originOf(ContextState const& context) {
    auto author = context.transactionAuthor.get(), name = context.name.get();
    if (author.empty() && name.empty()) return nullptr;
    return std::make_shared<ChangeOrigin const>(std::move(author), std::move(name));
}

std::string NSManagedObjectContext::transactionAuthor() const { return state_->transactionAuthor.get(); }
void NSManagedObjectContext::setTransactionAuthor(std::string author) { state_->transactionAuthor.set(std::move(author)); }

std::vector<HistoryTransaction> NSManagedObjectContext::executeRequest(HistoryRequest const& request, Ref<NSError>& error) const {
    if (state_->coordinator) return state_->coordinator->fetchHistory(request, error);
    error = storeError(StoreErrorCode::ContextWithoutStore, "This context has neither a parent nor a coordinator.");
    return {};
}

void NSManagedObjectContext::fetchHistory(HistoryRequest request, HistoryCompletion completion) {
    dispatch_async(
        dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0),
        [context = self<NSManagedObjectContext>(), request = std::move(request), completion = std::move(completion)]() mutable {
            Ref<NSError> error;
            auto found = context->executeRequest(request, error);
            auto* const asked = context.get();
            asked->performBlock([found = std::move(found), error, completion = std::move(completion)]() mutable {
                completion(std::move(found), error);
            });
        });
}

} // namespace Tessarin
