#include "Tessarin/dispatch/Dispatcher.h"

#include "Tessarin/dispatch/Awaiting.h"
#include "Tessarin/platform/runtime/Fatal.h"

namespace Tessarin {
namespace {

/// Truncates toward zero.
std::int64_t nanoseconds(double seconds) {
    constexpr double limit = 0x1p63; // the first that does not fit; its negative does
    double const count = seconds * 1'000'000'000;
    if (!(count >= -limit && count < limit)) fatal("DispatchMain.wait: the delay does not fit 64-bit nanoseconds");
    return static_cast<std::int64_t>(count);
}

/// Made on first use and never destroyed, since work may still run while the process ends.
template <class T> Ref<T> const& shared(qos_class_t qualityOfService) {
    return *new Ref<T>(make<T>(QualityOfService{qualityOfService}));
}

} // namespace

Dispatcher::~Dispatcher() = default;

void Dispatcher::init() { init(QueueOptions{}); }

void Dispatcher::init(QueueOptions options) {
    queue_ =
        dispatch_queue_create(options.identifier.c_str(), options.serial ? DISPATCH_QUEUE_SERIAL : DISPATCH_QUEUE_CONCURRENT);
    if (!queue_) fatal("Dispatcher: no queue could be made");
    type_ = customQueueQOS;
}

void Dispatcher::init(QualityOfService options) {
    type_ = options.qualityOfService;
    queue_ = type_ == 0 ? dispatch_get_main_queue() : dispatch_get_global_queue(type_, 0);
    if (!queue_) fatal("Dispatcher: there is no queue of quality of service " + std::to_string(type_));
}

void Dispatcher::sync(FunctionRef<void()> closure) { dispatch_sync(queue_, closure); }
void Dispatcher::async(Closure<void()> closure) { dispatch_async(queue_, std::move(closure)); }
bool Dispatcher::isMainQueue() const { return false; }

Ref<DispatchMain> const& Dispatcher::main() {
    static auto const& instance = shared<DispatchMain>(QOS_CLASS_UNSPECIFIED);
    return instance;
}
Ref<Dispatcher> const& Dispatcher::userInteractive() {
    static auto const& instance = shared<Dispatcher>(QOS_CLASS_USER_INTERACTIVE);
    return instance;
}
Ref<Dispatcher> const& Dispatcher::userInitiated() {
    static auto const& instance = shared<Dispatcher>(QOS_CLASS_USER_INITIATED);
    return instance;
}
Ref<Dispatcher> const& Dispatcher::utility() {
    static auto const& instance = shared<Dispatcher>(QOS_CLASS_UTILITY);
    return instance;
}
Ref<Dispatcher> const& Dispatcher::background() {
    static auto const& instance = shared<Dispatcher>(QOS_CLASS_BACKGROUND);
    return instance;
}

std::string& Dispatcher::mainQueueKey() {
    static auto& key = *new std::string("key");
    return key;
}
std::string& Dispatcher::mainQueueValue() {
    static auto& value = *new std::string("mainQueue");
    return value;
}
dispatch_once_t& Dispatcher::mainQueueToken() {
    static constinit dispatch_once_t token = 0;
    return token;
}

bool Dispatcher::inMainQueue() {
    dispatch_once(&mainQueueToken(),
                  [] { dispatch_queue_set_specific(dispatch_get_main_queue(), &mainQueueKey(), &mainQueueValue(), nullptr); });
    return dispatch_get_specific(&mainQueueKey()) == &mainQueueValue();
}

bool DispatchMain::isMainQueue() const { return true; }

void DispatchMain::init(QueueOptions options) { Dispatcher::init(std::move(options)); }
void DispatchMain::init(QualityOfService options) { Dispatcher::init(std::move(options)); }

void DispatchMain::now(FunctionRef<void()> closure) { inMainQueue() ? closure() : sync(closure); }

void DispatchMain::wait(double seconds, Closure<void()> closure) {
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, nanoseconds(seconds)), queue(), std::move(closure));
}

void delay(std::optional<double> seconds, Closure<void()> closure) {
    if (!seconds) return closure();
    Dispatcher::main()->wait(*seconds, std::move(closure));
}

Delay delay(double seconds) { return Delay(nanoseconds(seconds)); }

void dispatch_async_main(Closure<void()> closure) { Dispatcher::main()->async(std::move(closure)); }
void dispatch_now_main(FunctionRef<void()> closure) { Dispatcher::main()->now(closure); }

} // namespace Tessarin
