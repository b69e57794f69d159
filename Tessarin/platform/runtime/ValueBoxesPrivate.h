#pragma once
#include "Tessarin/platform/runtime/Value.h"
#include <atomic>
#include <cstring>

namespace Tessarin {

/// The counted heap cells behind those values that do not fit sixteen bytes.
class ValueBoxes {
public:
    template <class T> static void put(Value& value, Value::Kind kind, T content) {
        auto* box = new Box<T>(std::move(content));
        std::memcpy(value.raw, &box, sizeof box);
        value.tag = static_cast<unsigned char>(kind);
    }
    template <class T> static T const& get(Value const& value) noexcept {
        return static_cast<Box<T> const*>(counter(value))->content;
    }

    static void retain(Value const& value) noexcept { counter(value)->references.fetch_add(1, std::memory_order_relaxed); }
    static void release(Value& value) noexcept {
        auto* box = counter(value);
        if (box->references.fetch_sub(1, std::memory_order_acq_rel) == 1) destroy(box, value.kind());
    }

private:
    struct Counter {
        union {
            std::atomic<std::uint32_t> references;
            std::uintptr_t next; // of those that are to be destroyed: see `destroy`
        };
        Counter() noexcept : references(1) {}
    };
    template <class T> struct Box : Counter {
        explicit Box(T value) : content(std::move(value)) {}
        T content;
    };

    static Counter* counter(Value const& value) noexcept {
        Counter* box = nullptr;
        std::memcpy(&box, value.raw, sizeof box);
        return box;
    }
    static void destroy(Counter* box, Value::Kind kind) noexcept;
    static void free(Counter* box, Value::Kind kind) noexcept;
};

} // namespace Tessarin
