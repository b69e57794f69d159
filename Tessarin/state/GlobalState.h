#pragma once
#include "Tessarin/notifications/Notifier.h"
#include "Tessarin/state/GlobalStates.h"
#include "Tessarin/descriptions/Describe.h"
#include <string>

namespace Tessarin {

template <class T> class ValueWatcher;

enum class ForceCurrentThread { No, Yes };

/// A value of the whole application that tells its watchers when it changes. Watchers run on the state's serializer, one after
/// the other, and read the value as it is then. `current` may be set on any thread; of setters that run at once each compares
/// with what it replaced. `T` is anything that can be compared.
///
///     auto const mode = make<GlobalState<int>>(0, "Mode");
///     mode->watchValue([](int now) { show(now); });
///     mode->setCurrent(3);
template <class T> class GlobalState : public Notifier {
public:
    using ValueBlock = Closure<void(T const&)>;

    T const& initial() const { return *initial_; }
    /// The creation value, until a user sets another one. Changes of `current` leave it alone, on purpose.
    T const& previous() const { return *previous_; }
    void setPrevious(T value) { previous_ = std::move(value); }

    T current() const { return current_->get(); }
    /// Stores the value; tells the watchers when it differs from the one that it replaces.
    virtual void setCurrent(T value);
    virtual void modifyCurrent(FunctionRef<void(T&)> change) {
        auto changed = current();
        change(changed);
        setCurrent(std::move(changed));
    }

    std::string const& desc() const { return desc_; }
    /// "Mode: 3".
    std::string description() const override { return desc_ + ": " + describe(current()); }

    /// Registers a block, for as long as `object` lives where one is given. Both of these wait for the serializer: from one of
    /// its operations, so from inside a watcher, they block for ever.
    virtual Ref<ValueWatcher<T>> watchValue(TiedObject object, ValueBlock block);
    Ref<ValueWatcher<T>> watchValue(ValueBlock block) { return watchValue({}, std::move(block)); }
    /// Sends `action` to the observer with the ValueWatcher as its argument. The observer is held weakly.
    virtual void watchValue(Ref<NSObject> observer, Selector action);

    /// Registers a block for as long as what it returns lives; may be called from anywhere, also from inside a watcher.
    using Notifier::connect;
    [[nodiscard]] Connection connect(ValueBlock block);

    using Notifier::notify;
    /// Has each watcher called with the current value. Both arguments are ignored, on purpose: a watcher reads the state when its
    /// turn comes, on the serializer, so it never sees a value older than one that it saw before.
    virtual void notify(T const& value, ForceCurrentThread thread);
    void notify(T const& value) { notify(value, ForceCurrentThread::No); }

    static SelectorTable selectors() { return {{"watchValue:action:"_sel, &GlobalState::watchValueAction}}; }
    ~GlobalState() override;

protected:
    GlobalState() = default;
    /// Enters the state into `s_completeGlobalState`, in place of any of the same description; there it stays alive. A watcher
    /// given here stays for good.
    virtual void init(T value, std::string description, ValueBlock watcher);
    void init(T value, std::string description) { init(std::move(value), std::move(description), {}); }

private:
    using Notifier::init; // a state has a value
    void watchValueAction(Ref<NSObject> observer, std::string action) { watchValue(std::move(observer), Selector{action}); }

    std::optional<T> initial_, previous_; // present once initialised, as is the next; T may have no default
    std::optional<Cell<T>> current_;
    std::string desc_; // constant after init
};

} // namespace Tessarin

#include "Tessarin/state/GlobalState.inl"
