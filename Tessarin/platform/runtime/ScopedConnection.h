#pragma once
#include "Tessarin/platform/runtime/Ref.h"

namespace Tessarin {

/// A registration that lasts as long as this: when it is destroyed or ended, the observer is called no more. One that is being
/// called on another thread at that moment goes on to its end. Move it to keep it.
class [[nodiscard]] ScopedConnection {
public:
    ScopedConnection() noexcept = default;
    explicit ScopedConnection(Ref<void> observer) noexcept : observer_(std::move(observer)) {}

    void end() noexcept { observer_ = nullptr; }
    bool isConnected() const noexcept { return observer_ != nullptr; }

    ScopedConnection(ScopedConnection&&) noexcept = default;
    ScopedConnection& operator=(ScopedConnection&&) noexcept = default;

private:
    Ref<void> observer_; // which the other side holds weakly
};

} // namespace Tessarin
