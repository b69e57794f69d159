#include "Tessarin/platform/runtime/ValueBoxesPrivate.h"

#include "Tessarin/platform/runtime/NSObject.h"

#include <utility>

namespace Tessarin {

using Kind = Value::Kind;

namespace {

/// The boxes that wait for the one that is being destroyed on this thread; null while none is.
thread_local std::uintptr_t* waiting = nullptr;

// Collections come last among the kinds, so that the low bits of a box's address can say which one it is.
constexpr auto firstCollection = static_cast<unsigned>(Kind::List);
constexpr std::uintptr_t kindBits = 3;
static_assert(static_cast<unsigned>(Kind::ValueDictionary) - firstCollection <= kindBits);

} // namespace

/// Collections that lie in one another, however deep, go one after the other: what is inside waits in a list of its own boxes.
void ValueBoxes::destroy(Counter* box, Kind kind) noexcept {
    if (kind < Kind::Object) return free(box, kind);
    if (kind == Kind::Object) { // whatever it does at its end does not meet those that wait here
        auto* const outer = std::exchange(waiting, nullptr);
        free(box, kind);
        waiting = outer;
        return;
    }
    if (waiting) {
        box->next =
            std::exchange(*waiting, reinterpret_cast<std::uintptr_t>(box) | (static_cast<unsigned>(kind) - firstCollection));
        return;
    }
    std::uintptr_t inside = 0;
    waiting = &inside;
    free(box, kind);
    while (inside != 0) {
        auto* const each = reinterpret_cast<Counter*>(inside & ~kindBits);
        auto const eachKind = static_cast<Kind>(firstCollection + (inside & kindBits));
        inside = each->next;
        free(each, eachKind);
    }
    waiting = nullptr;
}

void ValueBoxes::free(Counter* box, Kind kind) noexcept {
    switch (kind) {
    case Kind::UUID: delete static_cast<Box<std::array<std::uint8_t, 16>>*>(box); break;
    case Kind::Data: delete static_cast<Box<std::vector<std::byte>>*>(box); break;
    case Kind::URL: delete static_cast<Box<std::string>*>(box); break;
    case Kind::Decimal: delete static_cast<Box<Decimal>*>(box); break;
    case Kind::Object: delete static_cast<Box<Ref<NSObject>>*>(box); break;
    case Kind::List: delete static_cast<Box<List>*>(box); break;
    case Kind::Set: delete static_cast<Box<ValueSet>*>(box); break;
    case Kind::Dictionary: delete static_cast<Box<Dictionary>*>(box); break;
    case Kind::ValueDictionary: delete static_cast<Box<ValueDictionary>*>(box); break;
    default: break; // held in the value itself
    }
}

} // namespace Tessarin
