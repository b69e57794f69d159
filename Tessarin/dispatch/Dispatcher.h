#pragma once
#include "Tessarin/platform/queues/Dispatch.h"
#include "Tessarin/platform/runtime/Ref.h"
#include "Tessarin/platform/runtime/Required.h"
#include <optional>
#include <string>

namespace Tessarin {

class DispatchMain;

/// How `make<Dispatcher>` makes a private queue. The label is exactly the identifier; equal ones are still different queues.
struct QueueOptions {
    std::string identifier = "customDISPATCHQueue"; // the capitals are meant
    bool serial = true;
};

/// How `make<Dispatcher>` takes a shared queue: 0 is the main queue, any other number the global queue of that class. Fatal when
/// there is none.
struct QualityOfService {
    Required<qos_class_t> qualityOfService;
};

/// A dispatch queue. Immutable; everything may be called from any thread.
///
///     auto images = make<Dispatcher>(QueueOptions{.identifier = "images"});
///     images->async([=] { decode(); });
///     Dispatcher::main()->now([&] { show(); });
class TESSARIN_API Dispatcher {
protected:
    Dispatcher() = default;
    void init();
    virtual void init(QueueOptions options);
    virtual void init(QualityOfService options);

public:
    Dispatcher(Dispatcher const&) = delete;
    Dispatcher& operator=(Dispatcher const&) = delete;
    virtual ~Dispatcher();

    /// The type of a queue that was made by identifier. No class of the system: it only tells a private queue from a global one.
    static constexpr qos_class_t customQueueQOS = 1;

    dispatch_queue_t const& queue() const { return queue_; }
    /// `customQueueQOS`, or the class that the queue was taken by; 0 for the main queue.
    qos_class_t type() const { return type_; }

    /// Runs the closure on the queue and returns when it has run. From inside the queue itself it blocks for ever; for the
    /// main queue there is `DispatchMain::now`.
    virtual void sync(FunctionRef<void()> closure);
    virtual void async(Closure<void()> closure);
    /// Answered by class, not by queue: false here, true for every DispatchMain.
    virtual bool isMainQueue() const;

    static Ref<DispatchMain> const& main();
    static Ref<Dispatcher> const& userInteractive();
    static Ref<Dispatcher> const& userInitiated();
    static Ref<Dispatcher> const& utility();
    static Ref<Dispatcher> const& background();

    /// Whether the caller runs on the main queue, or on a queue that targets it. False on the main thread inside a `sync` to
    /// another queue. The first call tags the main queue.
    static bool inMainQueue();

    /// The tag of the main queue: the addresses of these two are its key and value. The texts are never looked at and may be
    /// set; the token guards the tagging.
    static std::string& mainQueueKey();
    static std::string& mainQueueValue();
    static dispatch_once_t& mainQueueToken();

private:
    dispatch_queue_t queue_;
    qos_class_t type_ = 0;
};

/// The dispatcher that can tell that it is already where it should be. Made by identifier it owns a private queue, and still says
/// that it is the main queue.
class TESSARIN_API DispatchMain : public Dispatcher {
public:
    bool isMainQueue() const override;

    /// Runs the closure here when the caller is in the main queue, else by `sync`.
    virtual void now(FunctionRef<void()> closure);
    /// Runs the closure after a delay, as soon as possible when that is negative. Fatal when the delay does not fit 64-bit
    /// nanoseconds.
    virtual void wait(double seconds, Closure<void()> closure);

protected:
    DispatchMain() = default;
    using Dispatcher::init;
    void init(QueueOptions options) override;
    void init(QualityOfService options) override;
};

/// Runs the closure on the main queue after `seconds`; here and now without any. Fatal as `DispatchMain::wait` is.
TESSARIN_API void delay(std::optional<double> seconds, Closure<void()> closure);
TESSARIN_API void dispatch_async_main(Closure<void()> closure);
/// Runs the closure on the main queue and returns when it has run; inside the main queue it runs here.
TESSARIN_API void dispatch_now_main(FunctionRef<void()> closure);

} // namespace Tessarin
