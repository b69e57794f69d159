#pragma once
#include "Tessarin/notifications/TiedObject.h"
#include "Tessarin/platform/foundation/notifications/NSNotification.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include "Tessarin/platform/runtime/Required.h"
#include <cstdint>
#include <optional>

namespace Tessarin {

using NotificationBlock = Closure<void(Ref<NSNotification> const&)>;

/// Sends `message` with the notification to `target`, which is held weakly. Of these and the next two: without an object any
/// sender counts; without a count there is no limit to the deliveries. A watcher whose count runs out leaves as by `unwatch`, so
/// that two which end with one post take the wrong one along, or end the process: there `connect` is the safe way.
struct WatchTarget {
    Required<Ref<NSObject>> target;
    Required<Selector> message;
    Ref<NSObject> object = {};
    std::optional<std::int64_t> count = {};
};
/// Calls `block` with the notification.
struct WatchBlock {
    Ref<NSObject> object = {};
    std::optional<std::int64_t> count = {};
    Required<NotificationBlock> block;
};
/// Calls `block` for as long as `tiedTo` lives. The count is kept but never used.
struct WatchTied {
    Ref<NSObject> object = {};
    std::optional<std::int64_t> count = {};
    Required<TiedObject> tiedTo;
    Required<NotificationBlock> block;
};
/// What `watch` does not take: neither a block, nor a target with its message.
struct NeitherBlockNorMessage {
    Ref<NSObject> target = {};
    Ref<NSObject> object = {};
    std::optional<std::int64_t> count = {};
    TiedObject tiedTo = {};
};
struct UnwatchTarget {
    Required<TiedObject> target;
    Ref<NSObject> object = {};
};

} // namespace Tessarin
