#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/notifications/WatchOptions.h"
#include "Tessarin/platform/runtime/Cell.h"
#include "Tessarin/platform/runtime/EndCounter.h"
#include "Tessarin/platform/runtime/Enumeration.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/runtime/ObjectSlab.h"
#include "Tessarin/platform/runtime/SharedList.h"
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Tessarin {

class NSNotificationChannel;
class NSOperationQueue;
struct NotifyOptions;

/// One named channel on the default notification centre. Its full name ends with the application's identifier. Watchers run
/// on the main thread, or on the posting one where `notify` says so. Any thread, but for reading `watchers` without care.
///
///     auto const changes = make<Notifier>("PageChanged");
///     changes->watch({.target = editor, .message = "reload:"_sel});
///     changes->watch({.tiedTo = panel, .block = [=](auto const& notification) { show(notification->object()); }});
///     changes->notify({.object = page});
class TESSARIN_API Notifier : public NSObject {
public:
    class Watcher;
    class WatcherWithLinkedObject;
    class Connection;
    /// Posts to thousands of channels in turn read little else than their notifiers, notifications and watchers, each from slabs.
    template <class T> using ObjectAllocator = ObjectSlabAllocator<T>;

    /// Accepted by `notify`, where it has no effect.
    struct TESSARIN_API Coalescent : Enumeration<Coalescent> {
        static const Coalescent Idle, ASAP, Now;
        static std::optional<Coalescent> fromRawValue(std::int64_t rawValue);

    private:
        using Enumeration::Enumeration;
    };

    /// Three ways to register. Each waits for the serializer, so none may be called from one of its operations: that would
    /// block for ever. Each then forgets the watchers that can never deliver again. Leaving is by position (`unregister`), and
    /// safe only for one watcher at a time; where several may leave at once, `connect`.
    virtual void watch(WatchTarget options);
    virtual Ref<NSObject> watch(WatchBlock options); // the token for `unwatch`
    virtual void watch(WatchTied options);
    void watch(NeitherBlockNorMessage) = delete;

    /// Removes the first watcher, and no more, with that target (or tied object) and exactly that sender filter, later on the
    /// serializer. Without an object, watchers with a filter do not match. By position, as the next one: it may hit a neighbour.
    virtual void unwatch(UnwatchTarget options);
    /// Posts exactly one notification: now and here, or later on the main thread.
    virtual void notify(NotifyOptions options);
    void notify();
    /// Ends the watcher whose token this is; anything else is ignored. WARNING: `unwatch(a); unwatch(b);` without waiting for the
    /// serializer in between may remove a third watcher instead of b, or end the process; see `unregister`.
    virtual void unwatch(Ref<NSObject> const& observer);

    /// Registrations in their order. Setting them does not talk to the notification centre; null ones are left out. What the
    /// notifier itself changes, an overridden setter hears.
    virtual std::vector<Ref<Watcher>> watchers() const { return watchers_.copy(); }
    virtual void setWatchers(std::vector<Ref<Watcher>> watchers);
    virtual void modifyWatchers(FunctionRef<void(std::vector<Ref<Watcher>>&)> change);

    /// Removes, later on the serializer, whatever then stands at the position at which the watcher stands now. Nothing when it
    /// does not; fatal when the list is shorter by then. So of two that leave at once the second may take a neighbour along.
    virtual void unregister(Watcher const& watcher);
    /// Removes obsolete watchers from `watchers`: now, or later on the serializer.
    virtual void clean(bool later);
    void clean() { clean(false); }

    /// Registers for as long as what it returns lives, and leaves exactly that registration: always safe. Never waits.
    [[nodiscard]] Connection connect(WatchTarget options);
    [[nodiscard]] Connection connect(WatchBlock options);
    Connection connect(NeitherBlockNorMessage) = delete;

    std::string const& name() const { return name_; }
    /// The serial queue on which `watchers` is changed.
    Ref<NSOperationQueue> const& serializer() const { return serializer_; }

    ~Notifier() override;

protected:
    /// When a watcher becomes obsolete, so that not all have to be asked at each registration.
    enum class Obsolete { Never, WithTarget, WhenItSaysSo };

    Notifier();
    /// `name`, ".", the main bundle's identifier. Fatal when that has none.
    virtual void init(std::string name);
    /// Fatal: a channel without a name makes no sense.
    void init() override;
    /// Says that nobody overrides the access to `watchers`: then they need no copy to be changed. Before it is shared.
    void changeInPlace() { changesInPlace_ = true; }
    /// Appends and cleans up, and returns when the serializer has done so.
    void append(Ref<Watcher> watcher, Obsolete when);
    Connection connect(Ref<Watcher> watcher);

    /// Calls `fired` without a notification on each watcher, in their order, then on the connected ones, later on the serializer.
    /// When there is none, and none on its way, nothing is queued.
    void fireAll();

private:
    void disconnect(Ref<Watcher> watcher);
    void insert(Ref<Watcher> watcher, Obsolete when);
    void remove(Ref<Watcher> const& watcher);
    void forEachWatcher(FunctionRef<void(Ref<Watcher> const&)> visit) const;

    Ref<NSNotificationChannel> channel_; // these three are constant after init
    std::string name_;
    Ref<NSOperationQueue> serializer_;
    SharedList<Ref<Watcher>> watchers_;
    SharedList<Ref<Watcher>> connected_; // changed on the serializer, like the former
    // A watcher whose end is known needs no asking, until a target that somebody watches has ended:
    EndCounter endedTargets_;
    Cell<std::uint64_t> seenEnds_{0};
    Cell<bool> mustAsk_{false}; // there may be others
    bool changesInPlace_ = false;
};

inline constexpr Notifier::Coalescent Notifier::Coalescent::Idle{0};
inline constexpr Notifier::Coalescent Notifier::Coalescent::ASAP{1};
inline constexpr Notifier::Coalescent Notifier::Coalescent::Now{2};

/// How `notify` posts. `info` is a Dictionary, a ValueDictionary, or absent.
struct NotifyOptions {
    Ref<NSObject> object = {};
    Value info = {};
    bool forceCurrentThread = false;
    Notifier::Coalescent coalescent = Notifier::Coalescent::Now;
};

inline void Notifier::notify() { notify(NotifyOptions{}); }

} // namespace Tessarin

#include "Tessarin/notifications/Connection.h"
#include "Tessarin/notifications/Watcher.h"
