#pragma once
#include "Tessarin/dispatch/Dispatcher.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#ifndef __cpp_rtti
#error "Tessarin: Situation asks what class an object is of; compile without -fno-rtti"
#endif

namespace Tessarin {

class Condition;

/// A group of conditions, whose work runs one after the other in the order in which it was added, and a completion for when
/// none is pending. The counts, the list and the completion belong to `syncQueue`: other threads that read them take care of
/// the order themselves, for instance by `syncQueue()->sync`.
///
///     auto const start = make<Situation>();
///     start->setCompletion([] { dispatch_async_main([] { showWindow(); }); });
///     start->addCondition([] { openStore(); });
///     start->addCondition([] { loadFonts(); });
class TESSARIN_API Situation : public std::enable_shared_from_this<Situation> {
public:
    Situation(Situation const&) = delete;
    Situation& operator=(Situation const&) = delete;
    virtual ~Situation();

    /// The caller's flag; nothing here looks at it.
    virtual bool locked() const { return locked_; }
    virtual void setLocked(bool locked) { locked_ = locked; }
    virtual void modifyLocked(FunctionRef<void(bool&)> change);
    /// Runs on `syncQueue`, each time when a fulfilment leaves nothing pending. Adding a condition from it blocks for ever.
    virtual Closure<void()> const& completion() const { return *completion_; }
    virtual void setCompletion(Closure<void()> completion);
    virtual void modifyCompletion(FunctionRef<void(Closure<void()>&)> change);
    virtual std::int64_t pendingCount() const { return pendingCount_; }
    virtual std::int64_t completedCount() const { return completedCount_; }
    virtual std::vector<Ref<Condition>> pendingConditions() const;
    virtual void setPendingConditions(std::vector<Ref<Condition>> conditions);
    virtual void modifyPendingConditions(FunctionRef<void(std::vector<Ref<Condition>>&)> change);

    /// Returns once the condition is counted, before its work runs. Any thread, also the work of a condition.
    virtual void addCondition(Ref<Condition> condition);
    virtual void addCondition(Closure<void()> work);
    /// Counts the condition as completed, later on `syncQueue`, though it may have been before.
    virtual void fulfill(Ref<Condition> condition);
    /// "Situation: 2 pending, 3 completed".
    virtual std::string description() const;

    Ref<Dispatcher> const& workQueue() const { return workQueue_; }
    Ref<Dispatcher> const& syncQueue() const { return syncQueue_; }

protected:
    Situation();
    virtual void init();

private:
    bool locked_ = false;
    Ref<Closure<void()> const> completion_; // shared with its call, which it may replace
    std::int64_t pendingCount_ = 0;
    std::int64_t completedCount_ = 0;
    Ref<Dispatcher> workQueue_; // these two are constant after init
    Ref<Dispatcher> syncQueue_;
    struct Pending;
    std::unique_ptr<Pending> const pending_;
};

/// A piece of work in a situation. It is met as soon as the work has returned; without work, as soon as its turn comes. Two
/// conditions are equal when they are the same object.
class TESSARIN_API Condition : public std::enable_shared_from_this<Condition> {
public:
    Condition(Condition const&) = delete;
    Condition& operator=(Condition const&) = delete;
    virtual ~Condition();

    /// Null until the condition is added.
    virtual Ref<Situation> const& situation() const { return situation_; }
    virtual void setSituation(Ref<Situation> situation) { situation_ = std::move(situation); }
    virtual void modifySituation(FunctionRef<void(Ref<Situation>&)> change);
    virtual Closure<void()> const& workClosure() const { return *workClosure_; }
    virtual void setWorkClosure(Closure<void()> work);
    virtual void modifyWorkClosure(FunctionRef<void(Closure<void()>&)> change);
    virtual bool started() const { return started_; }
    virtual void setStarted(bool started) { started_ = started; }
    virtual void modifyStarted(FunctionRef<void(bool&)> change);
    virtual std::optional<std::string> label() const { return label_; }
    virtual void setLabel(std::optional<std::string> label) { label_ = std::move(label); }
    virtual void modifyLabel(FunctionRef<void(std::optional<std::string>&)> change);

    /// Fulfils the condition; a second call does so again. Fatal when it was never added.
    virtual void met();
    /// Runs the work here and is met. Nothing when it was started before.
    virtual void start();
    /// The label, or "Condition".
    virtual std::string description() const;

protected:
    Condition();
    virtual void init(std::optional<std::string> label);
    virtual void init(std::optional<std::string> label, Closure<void()> work);
    void init() { init(std::nullopt); }
    void init(Closure<void()> work) { init(std::nullopt, std::move(work)); }

private:
    Ref<Situation> situation_;
    Ref<Closure<void()> const> workClosure_; // shared with its call, which it may replace
    bool started_ = false;
    std::optional<std::string> label_;
};

TESSARIN_API std::ostream& operator<<(std::ostream& out, Situation const& situation);
TESSARIN_API std::ostream& operator<<(std::ostream& out, Condition const& condition);

} // namespace Tessarin
