#pragma once
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/NSObject.h"

namespace Tessarin {

/// A closure as an object, so that it fits a Value and goes along with a message.
///
///     auto const block = make<ClosureObject<void(Ref<NSNotification> const&)>>([](auto const& note) { show(note); });
///     classNamed("App.Feed")->invoke("observe:"_sel, {block});
template <class Signature> class ClosureObject : public NSObject {
public:
    Closure<Signature> const& closure() const { return closure_; }

protected:
    ClosureObject() = default;
    using NSObject::init;
    virtual void init(Closure<Signature> closure) { closure_ = std::move(closure); }

private:
    Closure<Signature> closure_; // constant after init
};

} // namespace Tessarin
