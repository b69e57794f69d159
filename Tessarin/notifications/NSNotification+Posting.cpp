#include "Tessarin/notifications/NSNotification+Posting.h"

#include "Tessarin/dispatch/Dispatcher.h"
#include "Tessarin/platform/foundation/notifications/NSNotification.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"
#include "Tessarin/platform/runtime/Fatal.h"

namespace Tessarin {
namespace {

[[maybe_unused]] auto const& registered = registerClass<NSNotification::Observation>();

Ref<NSNotification::Observation> observationByMessage(std::string name, Ref<NSObject> object, bool oneOff,
                                                      Ref<NSOperationQueue> queue, Ref<ObservationBlock> block) {
    if (!block || !block->closure()) fatal("initWithName:object:oneOff:queue:block: there is no block");
    return make<NSNotification::Observation>(
        ObservationOptions{.name = std::move(name), .object = std::move(object), .oneOff = oneOff, .queue = std::move(queue),
                           .block = [block](Ref<NSNotification> const& notification) { block->closure()(notification); }});
}

} // namespace

void NSNotificationPosting::postNotification(std::string_view name, Ref<NSObject> object, Value userInfo) {
    NSNotificationCenter::defaultCenter()->postNotificationName(name, std::move(object), std::move(userInfo));
}

void NSNotificationPosting::postNotificationOnMainThread(std::string_view name, Ref<NSObject> object, Value userInfo) {
    Dispatcher::main()->async([name = Text{name}, object = std::move(object), userInfo = std::move(userInfo)] {
        postNotification(name, object, userInfo);
    });
}

void NSNotificationPosting::Observation::init() { fatal("\"init()\" not implemented on \"Tessarin.Observation\""); }

void NSNotificationPosting::Observation::init(ObservationOptions options) {
    NSObject::init();
    if (!*options.block) fatal("Observation.init: there is no block");
    auto deliver = [weak = WeakRef<Observation>(self<Observation>()), oneOff = options.oneOff,
                    block = std::move(options.block).get()](Ref<NSNotification> const& notification) {
        block(notification);
        auto const observation = oneOff ? weak.lock() : nullptr;
        if (!observation) return;
        if (auto const token = observation->token()) NSNotificationCenter::defaultCenter()->removeObserver(*token);
    };
    setToken(NSNotificationCenter::defaultCenter()->addObserverForName(*options.name, options.object, std::move(options.queue),
                                                                       std::move(deliver)));
}

SelectorTable NSNotificationPosting::Observation::selectors() {
    return {{"initWithName:object:oneOff:queue:block:"_sel, &observationByMessage}};
}

void NSNotificationPosting::Observation::modifyToken(FunctionRef<void(Ref<NSObject>&)> change) {
    auto changed = token();
    change(changed);
    setToken(std::move(changed));
}

NSNotificationPosting::Observation::~Observation() {
    if (auto const token = token_.get()) NSNotificationCenter::defaultCenter()->removeObserver(*token);
}

} // namespace Tessarin
