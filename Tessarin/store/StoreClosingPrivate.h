#pragma once
// How a store is closed on purpose.
#include "Tessarin/store/ManagedObjectStore.h"

#include <vector>

namespace Tessarin {

/// Waits until what was saved at some level is in the file, then closes it: step by step, each as an item of the registry's
/// queue, so that no thread waits. Belongs to that queue.
class StoreClosing : public std::enable_shared_from_this<StoreClosing> {
public:
    using WhenUnsaved = ManagedObjectStore::WhenUnsaved;
    using Completion = Closure<void(Ref<NSError> const& error)>;

    explicit StoreClosing(ManagedObjectStore& store) : store_(store) {}
    /// Begins, unless it is under way or done.
    void add(Completion completion, WhenUnsaved whenUnsaved);

private:
    using Contexts = std::vector<Ref<NSManagedObjectContext>>;
    void begin();
    void runQueuedBlocks();
    void letNothingSetOut();
    void saveLevels();
    void saveRoot();
    void finish();
    void close();
    void end(Ref<NSError> const& error);
    void then(void (StoreClosing::*step)());
    void after(dispatch_group_t const& group, void (StoreClosing::*step)());
    void save(NSManagedObjectContext& context, dispatch_group_t const& group);
    Contexts levels() const;
    bool isPending() const;

    ManagedObjectStore& store_;
    Ref<ManagedObjectStore> kept_; // while it is under way
    std::vector<Completion> completions_;
    bool givesUp_ = false, isClosed_ = false;
    Cell<Ref<NSError>> problem_; // of the saves of this round; written on contexts' queues
};

} // namespace Tessarin
