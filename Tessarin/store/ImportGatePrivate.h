#pragma once
// Which imports of a store may run: one that hands its changes up faster than the file takes them would fill the memory.
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/queues/Dispatch.h"

#include <deque>

namespace Tessarin {

/// Starts imports in the order of their coming while fewer than `most` (0: any number) run or stand, saved, before the file. What
/// waits for the main queue is not counted: an application that lets it wait for an import would wait for ever. Any thread.
class ImportGate : public std::enable_shared_from_this<ImportGate> {
public:
    ImportGate(dispatch_queue_t queue, Ref<NSManagedObjectContext> root, std::size_t most);
    /// Has `start` called when it may run; `hasEnded` follows once for each.
    void add(Closure<void()> start);
    void hasEnded();
    void rootHasSaved();
    /// A save above failed: who waits for the store to be closed would wait for ever for the next one.
    void saveHasFailed();
    /// Calls `whenIdle` on the queue when all that was added before has ended; what comes meanwhile waits for `goOn`.
    void holdBack(Closure<void()> whenIdle);
    /// `Always`: from now on nothing waits for anything.
    enum class Start { AsBefore, Always };
    void goOn(Start how);

private:
    void change(Closure<void()> step);
    bool mayStart() const;
    void startWhatMay();

    dispatch_queue_t queue_;
    Ref<NSManagedObjectContext> root_;
    std::size_t const most_; // constant, as what stands before it
    std::size_t running_ = 0; // on queue_, like what follows
    std::deque<Closure<void()>> waiting_;
    std::deque<Closure<void()>> later_; // which came while others were held back
    Closure<void()> whenIdle_;
    bool holdsBack_ = false;
    bool startsAlways_ = false;
};

} // namespace Tessarin
