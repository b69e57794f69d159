#pragma once
#include "Tessarin/platform/objectgraph/context/FoldedChangesPrivate.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace Tessarin {

class NSManagedObjectContext;

/// The change sets that children handed to a context and that it has not handed on yet, in their order, and on top of them
/// the context's own unsaved changes as they were when it last looked. Readers of the levels below take both without
/// entering the context's queue. Any thread.
class PublishedChanges {
public:
    /// `sets`, made of what leaves here, go to the parent: at one moment, so that no reader misses them or sees them twice.
    /// False, and nothing happens, when something has come to the parent since `seen`.
    bool handUp(ChangeSets const& leaving, ChangeSets const& sets, PublishedChanges& parent, std::uint64_t seen);
    /// How often sets have come.
    std::uint64_t arrivals() const;
    struct Arrival {
        enum class Kind : std::uint8_t { HandedUp, Corrections, SavedAbove };
        Ref<ChangeSet const> set;
        Kind kind = Kind::HandedUp;
    };
    /// What a save further up left otherwise than it was handed up, or what the topmost context itself has changed and saved.
    void receive(Arrival arrival);
    /// The sets that stand here now, as they were handed up: what a save hands on.
    ChangeSets current() const;
    bool empty() const;
    std::size_t count() const;
    /// The same for readers, folded to a few sets, with what else children see. Null where there are none.
    struct Reading {
        std::shared_ptr<ChangeSets const> aside; // see `setAside`
        std::shared_ptr<ChangeSets const> sets;
        std::shared_ptr<ChangeSets const> unsaved;
        std::uint64_t state = 0; // see `state`
    };
    Reading forReading() const;
    /// Another one as soon as sets come or go.
    std::uint64_t state() const;
    /// The state while there is nothing for readers; absent else. Takes no lock.
    std::optional<std::uint64_t> stateWithoutSets() const noexcept {
        auto const shown = shown_.load(std::memory_order_acquire);
        return shown % 2 == 0 ? std::optional(shown) : std::nullopt;
    }
    /// The context's own changes, one after the other.
    std::shared_ptr<ChangeSets const> unsaved() const;
    void setUnsaved(ChangeSets unsaved);
    /// How often they have changed. Takes no lock.
    std::uint32_t unsavedChanges() const noexcept { return unsavedChanges_.load(std::memory_order_acquire); }
    /// What the context itself has to say of what was handed up, behind it.
    void add(Ref<ChangeSet const> const& set);
    /// A save begins: the own changes, with permanent keys now, become the last of the sets, which are the result.
    ChangeSets stage(Ref<ChangeSet const> const& own);
    /// The save failed: they are unsaved again.
    void unstage(Ref<ChangeSet const> const& own);
    /// The sets received since the last call: their effect on registered objects is the context's to apply.
    std::vector<Arrival> takeUnapplied();
    /// Child contexts, which are told corrections. Held weakly.
    void addReader(Ref<NSManagedObjectContext> const& child);
    std::vector<Ref<NSManagedObjectContext>> readers() const;
    /// Handed on (to the parent, or to the file): they leave, in whatever order others have come meanwhile.
    void remove(ChangeSets const& sets);
    /// Sets that are never handed on: they leave the others, and readers keep seeing them until they are dropped.
    void setAside(ChangeSets const& sets);
    void dropAside();

private:
    using Shared = std::shared_ptr<ChangeSets const>;
    void append(ChangeSets const& sets, Shared read);
    void noteShown() noexcept;
    void noteUnsaved() noexcept { unsavedChanges_.fetch_add(1, std::memory_order_release); }
    void exchange(FunctionRef<void(ChangeSets& sets, ChangeSets& aside)> change, Shared unsaved = nullptr);

    mutable std::mutex mutex_;
    ChangeSets sets_; // guarded by mutex_, like what follows
    Shared aside_ = std::make_shared<ChangeSets>();
    Shared read_ = std::make_shared<ChangeSets>(); // `sets_`, folded
    std::uint64_t state_ = 0;
    std::uint64_t arrivals_ = 0;
    std::vector<Arrival> unapplied_;
    std::vector<WeakRef<NSManagedObjectContext>> readers_; // and some that have ended
    std::size_t sweepReadersAt_ = 16;
    Shared unsaved_ = std::make_shared<ChangeSets>();
    std::atomic<std::uint32_t> unsavedChanges_{0};
    std::atomic<std::uint64_t> shown_{0}; // twice the state, and one more while there are sets for readers
};

/// Sets that a child made on top of a parent's unsaved changes, told from what the parent had read instead: the parent's
/// changes to the same records come along, so that a set never builds on something that may not be saved before it.
ChangeSets rebased(ChangeSets const& sets, ChangeSets const& unsaved);

} // namespace Tessarin
