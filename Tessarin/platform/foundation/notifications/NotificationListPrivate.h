#pragma once
#include "Tessarin/platform/foundation/notifications/NSNotificationChannel.h"
#include "Tessarin/platform/foundation/notifications/NotificationRegistrationPrivate.h"
#include <cstdint>
#include <memory>
#include <vector>

namespace Tessarin {

/// A channel's registrations in the order of their sequence numbers, and how many posts walk through them now. Readers are
/// counted under the channel's lock: an atomic count seen at zero would not order the reads before it with a change after it.
struct alignas(64) NSNotificationChannel::List {
    /// A registration, or the sequence number of one that was removed, in eight bytes: a post to very many is bound by memory.
    class Place {
    public:
        Place() = default;
        explicit Place(NotificationRegistration& registration)
            : word_(reinterpret_cast<std::uintptr_t>(&registration) | (registration.sender() ? filteredBit : 0) |
                    (registration.kind_ == NotificationRegistration::Kind::Listener ? listenerBit : 0)) {}

        NotificationRegistration* registration() const noexcept {
            return word_ & removedBit ? nullptr
                                      : reinterpret_cast<NotificationRegistration*>(word_ & ~(filteredBit | listenerBit));
        }
        // Of one that is not removed:
        bool isFiltered() const noexcept { return word_ & filteredBit; }
        bool isListener() const noexcept { return word_ & listenerBit; }
        std::uint64_t sequence() const noexcept { return word_ & removedBit ? word_ >> 1 : registration()->sequence_; }
        void markRemoved() noexcept { word_ = sequence() << 1 | removedBit; }

    private:
        static constexpr std::uintptr_t removedBit = 1, filteredBit = 2, listenerBit = 4;
        std::uintptr_t word_ = removedBit;
    };
    /// Up to four stand in the list itself, which is then one line of the processor's cache.
    class Places {
    public:
        Places() = default;
        Places(Places const& other) : Places() { *this = other; }
        Places& operator=(Places const& other);
        ~Places() { clear(); }

        Place* begin() noexcept { return first_; }
        Place* end() noexcept { return first_ + size_; }
        Place const* begin() const noexcept { return first_; }
        Place const* end() const noexcept { return first_ + size_; }
        std::size_t size() const noexcept { return size_; }
        void append(Place place);
        void resize(std::size_t size) { size_ = static_cast<std::uint32_t>(size); } // to fewer
        void clear() noexcept;

    private:
        static constexpr std::uint32_t few = 4;
        void grow(std::uint32_t capacity);

        Place* first_ = few_;
        std::uint32_t size_ = 0, capacity_ = few;
        Place few_[few];
    };
    Places places;
    std::uint32_t readers = 0;
    std::uint32_t removed = 0; // when they are half of all they go, so that removing costs no move of the rest
    std::unique_ptr<std::vector<Ref<void>>> keeps; // what was removed while this list was read, until nobody does any more

    void take(std::uint64_t sequence);
    void dropRemoved();
};

/// Keeps a list from being changed or destroyed while it is read.
class NSNotificationChannel::Reading {
public:
    /// Also borrows the channel's plain notification into `plain`, if any, and gives it back when nobody has kept it.
    explicit Reading(NSNotificationChannel& channel, Ref<NSNotification>* plain = nullptr);
    ~Reading();
    Reading(Reading const&) = delete;
    Reading& operator=(Reading const&) = delete;

    auto const& places() const noexcept { return list_->places; }

private:
    NSNotificationChannel& channel_;
    Ref<NSNotification>* const plain_;
    List* list_ = nullptr;
};

} // namespace Tessarin
