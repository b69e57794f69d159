#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include "Tessarin/platform/runtime/ObjectSlab.h"
#include "Tessarin/platform/runtime/Text.h"
#include "Tessarin/platform/runtime/Value.h"
#include <string>
#include <string_view>
// What other rooms add to notifications:
#include "Tessarin/notifications/NSNotification+Posting.h"

namespace Tessarin {

/// What observers are told: a name, perhaps a sender, perhaps details. Immutable; one object for all observers of a post.
///
///     auto const saved = NSNotification::notificationWithName("DocumentSaved", document, Dictionary{{"bytes", 1024}});
class TESSARIN_API NSNotification : public NSObject, public NSNotificationPosting {
public:
    template <class T> using ObjectAllocator = ObjectSlabAllocator<T>;
    static Ref<NSNotification> notificationWithName(std::string_view name, Ref<NSObject> object = nullptr, Value userInfo = {});

    Text const& name() const noexcept { return name_; }
    /// The sender; null when none was named.
    Ref<NSObject> const& object() const noexcept { return object_; }
    /// The details: a Dictionary, a ValueDictionary, or absent. A subclass may make them when they are first asked for; it
    /// must then be ready for observers on several threads, and keep them, since references to them are handed out.
    virtual Value const& userInfo() const { return userInfo_; }

    std::string description() const override;
    static SelectorTable selectors();

protected:
    NSNotification() = default;
    using NSObject::init;
    virtual void init(Text name, Ref<NSObject> object, Value userInfo);

private:
    Text name_; // all three constant after init
    Ref<NSObject> object_;
    Value userInfo_;
};

} // namespace Tessarin
