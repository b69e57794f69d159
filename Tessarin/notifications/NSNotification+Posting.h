#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Cell.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/ClosureObject.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include "Tessarin/platform/runtime/Required.h"
#include <string>

namespace Tessarin {

class NSNotification;
class NSOperationQueue;

using ObservationBlock = ClosureObject<void(Ref<NSNotification> const&)>;

/// What an Observation observes. Without an object any sender counts; without a queue the block runs on the posting thread.
struct ObservationOptions {
    Required<std::string> name;
    Ref<NSObject> object = {};
    bool oneOff = false;
    Ref<NSOperationQueue> queue = {};
    Required<Closure<void(Ref<NSNotification> const&)>> block;
};

/// Posting on the default centre in one call, and observing it for as long as an object is kept. Names are used unchanged.
///
///     NSNotification::postNotification("DocumentSaved", document);
///     auto const beeps = [](auto const&) { beep(); };
///     saved_ = make<NSNotification::Observation>(ObservationOptions{.name = "DocumentSaved", .block = beeps});
class TESSARIN_API NSNotificationPosting {
    friend class NSNotification; // only NSNotification can carry this room
    NSNotificationPosting() = default;

public:
    class Observation;

    /// Posts now, on the caller's thread. The class answers it as "postNotification:object:userInfo:".
    static void postNotification(std::string_view name, Ref<NSObject> object = nullptr, Value userInfo = {});
    /// Posts in a later turn of the main queue, also when called on the main thread.
    static void postNotificationOnMainThread(std::string_view name, Ref<NSObject> object = nullptr, Value userInfo = {});

protected:
    ~NSNotificationPosting() = default;
};

/// Observes the default centre until it is destroyed or, when one-off, until its first delivery. The token stays set after
/// that delivery. Any thread.
class TESSARIN_API NSNotificationPosting::Observation : public NSObject {
public:
    /// What the centre returned; absent until registration has happened.
    virtual Ref<NSObject> token() const { return token_.get(); }
    virtual void setToken(Ref<NSObject> token) { token_.set(std::move(token)); }
    virtual void modifyToken(FunctionRef<void(Ref<NSObject>&)> change);

    /// The class answers "initWithName:object:oneOff:queue:block:" with a new observation; the block is an ObservationBlock.
    static SelectorTable selectors();
    ~Observation() override;

protected:
    Observation() = default;
    /// Fatal without a block.
    virtual void init(ObservationOptions options);
    /// Fatal: an observation of nothing makes no sense.
    void init() override;

private:
    Cell<Ref<NSObject>> token_; // set here while the first notification may arrive elsewhere
};

} // namespace Tessarin
