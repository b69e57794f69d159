#include "Tessarin/platform/foundation/notifications/NSNotification.h"

#include <fmt/format.h>

namespace Tessarin {
namespace {

[[maybe_unused]] auto const& registered = registerClass<NSNotification>();

} // namespace

Ref<NSNotification> NSNotification::notificationWithName(std::string_view name, Ref<NSObject> object, Value userInfo) {
    return make<NSNotification>(Text{name}, std::move(object), std::move(userInfo));
}

void NSNotification::init(Text name, Ref<NSObject> object, Value userInfo) {
    NSObject::init();
    name_ = std::move(name);
    object_ = std::move(object);
    userInfo_ = std::move(userInfo);
}

SelectorTable NSNotification::selectors() {
    return {{"postNotification:object:userInfo:"_sel, &NSNotification::postNotification}};
}

std::string NSNotification::description() const {
    std::string text = fmt::format("NSNotification {{name = {}", name_.view());
    if (object_) text += "; object = " + object_->description();
    if (!userInfo().isAbsent()) text += "; userInfo = " + userInfo().description();
    return text + "}";
}

} // namespace Tessarin
