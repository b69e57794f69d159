#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"
#include <atomic>
#include <vector>

namespace Tessarin {

class ContextState;
class NSManagedObject;
class NSManagedObjectContext;

/// What a turn did to a context's records: by key, so that nothing has to be in memory for it. A record may be named more than
/// once.
struct ContextTurn {
    struct Record {
        NSEntityDescription const* entity;
        RecordKey key;
    };
    struct NewKey {
        NSEntityDescription const* entity;
        RecordKey before, now;
    };
    struct Arrival {
        Ref<ChangeSet const> set;
        bool isCorrection; // made beyond the contexts: what it deletes may have been linked with records that it does not name
    };

    std::vector<Record> records;
    std::vector<Arrival> sets;
    std::vector<NewKey> newKeys; // of this context's objects, which nobody else may know by the temporary ones
    bool hasNewKeys = false;     // temporary keys became permanent
    bool isEverything = false;   // more than is named
    bool isAwaited = false;      // somebody waits for the end of the turn, whatever happened
    bool empty() const noexcept { return records.empty() && sets.empty() && !hasNewKeys && !isEverything && !isAwaited; }
};

/// Somebody who is told, once a turn, what happened to a context's records: after each block, for changes outside any block soon
/// after. On the context's queue.
class ContextFollower {
public:
    virtual ~ContextFollower() = default;
    virtual void follow(ContextTurn const& turn) = 0;
};

/// Gathers that for a context's followers, which are held weakly; nothing while there are none.
class ContextFeed {
public:
    /// It may also be told what happened in this turn before.
    void add(Ref<ContextFollower> const& follower);
    bool isFollowed() const noexcept { return !followers_.empty(); }

    void note(ContextState& context, NSManagedObject const& object);
    void note(ContextState& context, Ref<ChangeSet const> const& set, bool isCorrection);
    void noteNewKey(ContextState& context, NSManagedObject const& object, RecordKey now);
    void noteNewKeys(ContextState& context);
    void noteEverything(ContextState& context);
    /// The followers are told of the end of this turn, also when nothing happens in it.
    void awaitEnd(ContextState& context);
    /// Tells the followers what was gathered, unless they are being told.
    void tell(ContextState& context);
    /// A child has handed something up: if somebody follows, it is brought to this context soon. Any thread.
    void wake(NSManagedObjectContext& context);

private:
    void isTouched(ContextState& context);
    void schedule(NSManagedObjectContext& context);

    std::vector<WeakRef<ContextFollower>> followers_;
    ContextTurn turn_;
    bool isTelling_ = false;
    std::atomic<bool> mustWake_{false}; // has followers; any thread
    std::atomic<bool> isScheduled_{false};
};

} // namespace Tessarin
