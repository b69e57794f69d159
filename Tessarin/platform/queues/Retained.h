#pragma once
#include "Tessarin/Export.h"
#include <cstddef>
#include <string_view> // std::hash
#include <utility>

namespace Tessarin {

class DispatchQueue;
class DispatchGroup;
class DispatchSemaphore;

TESSARIN_API void retainObject(DispatchQueue& queue) noexcept;
TESSARIN_API void releaseObject(DispatchQueue& queue) noexcept;
TESSARIN_API void retainObject(DispatchGroup& group) noexcept;
TESSARIN_API void releaseObject(DispatchGroup& group) noexcept;
TESSARIN_API void retainObject(DispatchSemaphore& semaphore) noexcept;
TESSARIN_API void releaseObject(DispatchSemaphore& semaphore) noexcept;

/// A counted reference to a dispatch object, one pointer wide; null by default. Copying retains and destruction releases, so
/// there is no dispatch_retain and no dispatch_release to forget. Two are equal when they refer to the same object.
template <class T> class Retained {
public:
    constexpr Retained() noexcept = default;
    constexpr Retained(std::nullptr_t) noexcept {}
    /// Shares an object that somebody else holds.
    explicit Retained(T* object) noexcept : object_(object) {
        if (object_) retainObject(*object_);
    }
    /// Takes over the reference that the caller holds.
    static constexpr Retained adopt(T* object) noexcept { return Retained(object, Adopted{}); }

    Retained(Retained const& other) noexcept : Retained(other.object_) {}
    Retained(Retained&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Retained& operator=(Retained other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    constexpr ~Retained() {
        if (object_) releaseObject(*object_);
    }

    T* get() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    T* operator->() const noexcept { return object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }
    friend bool operator==(Retained const&, Retained const&) noexcept = default;

private:
    struct Adopted {};
    constexpr Retained(T* object, Adopted) noexcept : object_(object) {}

    T* object_ = nullptr;
};

using dispatch_queue_t = Retained<DispatchQueue>;
using dispatch_group_t = Retained<DispatchGroup>;
using dispatch_semaphore_t = Retained<DispatchSemaphore>;
using dispatch_function_t = void (*)(void*);

} // namespace Tessarin

template <class T> struct std::hash<Tessarin::Retained<T>> {
    std::size_t operator()(Tessarin::Retained<T> const& object) const noexcept { return std::hash<T*>{}(object.get()); }
};
