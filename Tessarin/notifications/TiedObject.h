#pragma once
#include "Tessarin/platform/runtime/NSObject.h"
#include <concepts>
#include <memory>

namespace Tessarin {

/// What a registration may be tied to: an object, or anything else that is shared. The latter has no address as an object, but
/// it still ends.
class TiedObject {
public:
    TiedObject() = default; // nothing
    template <std::derived_from<NSObject> T> TiedObject(Ref<T> object) : object_(std::move(object)) {}
    template <class T>
        requires(!std::derived_from<T, NSObject>)
    TiedObject(std::shared_ptr<T> const& thing) : object_(thing, static_cast<NSObject*>(nullptr)) {}

    explicit operator bool() const { return object_.use_count() > 0; }
    Ref<NSObject> const& object() const { return object_; }
    /// Equal as objects are; other things when they are the same.
    friend bool operator==(TiedObject const& a, Ref<NSObject> const& b) {
        if (a.object_ && b) return equal(a.object_, b);
        return !a.object_ && !b && b.use_count() > 0 && !a.object_.owner_before(b) && !b.owner_before(a.object_);
    }

private:
    Ref<NSObject> object_;
};

} // namespace Tessarin
