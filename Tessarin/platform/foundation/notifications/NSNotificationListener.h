#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/notifications/NSNotification.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include "Tessarin/platform/runtime/ObjectSlab.h"
#include <atomic>
#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace Tessarin {

class NSNotificationChannel;
template <class T> struct ListenerAllocator;

/// One observer's place at a centre; of a closure observer also its token.
class TESSARIN_API NotificationRegistration : public NSObject {
public:
    virtual bool isDead() const { return false; }
    /// Observers and senders are told apart by address.
    virtual NSObject const* observer() const { return this; }
    virtual NSObject const* sender() const { return nullptr; } // null: any

    bool isActive() const noexcept { return isActive_.load(std::memory_order_acquire); }
    bool accepts(NSObject const* from) const { return !sender() || sender() == from; }

protected:
    enum class Kind : std::uint8_t { Own, Listener };
    explicit NotificationRegistration(Kind kind) : kind_(kind) {}
    /// What keeps it alive while it is registered, given away for good. Nothing, unless a subclass says otherwise.
    virtual Ref<NotificationRegistration> takeSelf() { return nullptr; }

private:
    friend class NotificationRegistry;
    friend class NSNotificationChannel;
    friend class NSNotificationListener;
    bool matches(std::optional<std::string_view> name, NSObject const* from) const;

    // In the order that leaves no gaps. Constant while active, but for the first.
    std::atomic<bool> isActive_{false};
    Kind const kind_;
    std::uint32_t home_ = 0; // the number of its centre
    std::uint64_t sequence_ = 0;
    NSNotificationChannel* channel_ = nullptr;
};

/// An observer that is its own registration, for those who have very many: `listenTo` allocates nothing, and a delivery locks no
/// weak reference. It listens until the centre removes it or the last reference to it goes. A post that may be calling it at
/// that moment ends first; until then the object stays whole, but `self()` must no longer be asked for in `fired`: ask
/// `weak_from_this`. Made by `make`, like any object.
class TESSARIN_API NSNotificationListener : public NotificationRegistration {
public:
    template <class T> using ObjectAllocator = ListenerAllocator<T>;

    /// Called at each post, on the posting thread.
    virtual void fired(Ref<NSNotification> const& notification) = 0;

    bool isDead() const final { return false; } // it has gone from the list before it is

protected:
    NSNotificationListener() : NotificationRegistration(Kind::Listener) {}
    /// Once, after what `sender()` says is settled. The listener sees to it that the channel outlives it.
    void listenTo(NSNotificationChannel& channel);

private:
    template <class T> friend struct ListenerAllocator;
    /// Calls `destroy` when no post can be calling the listener any more: now, or at the end of the last that might.
    void endWith(void (*destroy)(void*), void* object);
};

/// A slab, but for the end of an object's life.
template <class T> struct ListenerAllocator : ObjectSlabAllocator<T> {
    ListenerAllocator() = default;
    template <class U> ListenerAllocator(ListenerAllocator<U> const&) noexcept {}
    template <class U> struct rebind {
        using other = ListenerAllocator<U>;
    };

    template <std::derived_from<NSNotificationListener> U> void destroy(U* listener) {
        listener->endWith(
            [](void* object) {
                auto* const ended = static_cast<U*>(object);
                auto const storage = ended->weak_from_this(); // which must outlast the destructor
                ended->~U();
            },
            listener);
    }
};

} // namespace Tessarin
