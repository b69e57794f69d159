#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"
#include <atomic>
#include <unordered_map>
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
    /// The root of the only tree of entities that concerns it, constant; null: whatever happens does.
    virtual NSEntityDescription const* onlyTree() const { return nullptr; }
};

/// Gathers that for a context's followers, which are held weakly; nothing while there are none.
class ContextFeed {
public:
    /// It may also be told what happened in this turn before.
    void add(Ref<ContextFollower> const& follower);
    bool isFollowed() const noexcept { return count_ != 0; }

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

    struct Follower {
        std::uint64_t number; // they are told in the order in which they came
        WeakRef<ContextFollower> follower;
    };
    using Followers = std::vector<Follower>;
    Followers concerned(ContextTurn const& turn) const;
    void sweep();

    std::unordered_map<NSEntityDescription const*, Followers> followers_; // by their only tree
    std::size_t count_ = 0;       // of followers, and of some that have ended
    std::size_t untilSweep_ = 64; // tellings and comers
    std::uint64_t lastNumber_ = 0;
    ContextTurn turn_;
    bool isTelling_ = false;
    std::atomic<bool> mustWake_{false}; // has followers; any thread
    std::atomic<bool> isScheduled_{false};
};

} // namespace Tessarin
