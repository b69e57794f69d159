#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Ref.h"
#include "Tessarin/platform/runtime/Selector.h"
#include "Tessarin/platform/runtime/StaticText.h"
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

class NSObject;

/// What the notifications add to every object: registering for notifications by selector, and attached objects.
class TESSARIN_API NSObjectObserving {
    friend class NSObject; // only NSObject can carry this room
    NSObjectObserving() = default;

public:
    /// Registers this object on the default centre for `name`, optionally only from sender `object`. When it does not
    /// answer `selector`, one line on standard output says so and nothing is registered. The centre holds it weakly.
    void addAsObserver(std::string_view name, Selector selector, Ref<NSObject> object = nullptr);
    /// Removes the registrations of this object for `name` from any sender; without a name, all of them.
    void removeAsObserver(std::optional<std::string_view> name = {});

    /// Attaches `object` under the identity of `key` (its address, not its characters); null clears. Any thread.
    /// Fatal for a single-character key.
    void associateObject(Ref<NSObject> object, StaticText const& key);
    Ref<NSObject> associatedObjectForKey(StaticText const& key) const;

protected:
    ~NSObjectObserving() = default;
};

} // namespace Tessarin
