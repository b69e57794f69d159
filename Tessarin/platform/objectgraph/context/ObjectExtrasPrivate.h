#pragma once
#include "Tessarin/platform/objectgraph/context/ContextLinkPrivate.h"
#include "Tessarin/platform/objectgraph/context/FaultBatchPrivate.h"
#include "Tessarin/platform/objectgraph/context/KeySetPrivate.h"
#include "Tessarin/platform/objectgraph/context/ObjectState.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSManagedObjectID.h"
#include "Tessarin/platform/runtime/ObjectSlab.h"
#include <memory>
#include <utility>
#include <vector>

namespace Tessarin {

/// What a context knows of one to-many relationship of one object, beyond the store: what was added and removed since the
/// last save, and, once it was read, the members as they are now.
struct ToManyState {
    std::uint32_t property = 0;
    bool isLoaded = false;
    bool isDoubtful = false; // others have changed it since the last save: they may have added or removed the same
    bool isReordered = false;
    bool holdsTemporaries = false; // perhaps: keys that may have given way to permanent ones
    KeySet members; // when loaded, in their order where the relationship has one
    KeySet added, removed;
    std::uint32_t goneSeen = 0;    // how many deletions by others the members were held against
    std::uint32_t unsavedSeen = 0; // of the ancestors, see `ContextState`; 0: the members rest on nothing unsaved

    /// The members without what is unsaved here, once somebody had to know in doubt, and as what they are of.
    struct Beneath {
        KeySet members;
        std::uint32_t gone, unsavedAbove;
    };
    std::shared_ptr<Beneath const> beneath;

    /// Others have changed it.
    void doubt() {
        isDoubtful = true;
        isLoaded = false;
        beneath = nullptr;
    }
    bool isChanged() const { return !added.empty() || !removed.empty() || isReordered; }
    template <class Translate> void toPermanent(Translate translate) {
        if (!holdsTemporaries) return;
        for (auto* keys : {&members, &added, &removed}) keys->translate(translate);
        beneath = nullptr;
    }
};

/// What only some objects have: unsaved values, read relationships, an identity that somebody asked for.
struct ObjectExtras {
    using Values = std::vector<std::pair<std::uint32_t, Value>, ObjectSlabAllocator<std::pair<std::uint32_t, Value>>>;
    Values values; // by property: unsaved attributes, and to-ones as keys (0: none)
    std::vector<ToManyState> toMany;
    Ref<NSManagedObjectID> id;
    bool isRecordGone = false;  // somebody else deleted it, while there were unsaved values here
    std::uint32_t keysAsOf = 0; // the count of the link's changes of keys when values and relationships were last looked through

    // An import makes them by the ten thousand, and one save releases them all.
    static void* operator new(std::size_t size) { return ObjectSlab::take(size); }
    static void operator delete(void* memory, std::size_t size) noexcept { ObjectSlab::give(memory, size); }
    bool isEmpty() const noexcept { return values.empty() && toMany.empty() && !id; }
    Value* value(std::size_t property) {
        for (auto& [at, value] : values)
            if (at == property) return &value;
        return nullptr;
    }
    ToManyState* find(std::size_t property) {
        for (auto& state : toMany)
            if (state.property == property) return &state;
        return nullptr;
    }
};

inline ContextLink* ObjectState::link() const noexcept { return batch ? &batch->link : nullptr; }
inline ObjectExtras& ObjectState::more() {
    if (!extras) extras.reset(new ObjectExtras);
    return *extras;
}
inline ToManyState& ObjectState::toMany(std::size_t property) {
    if (auto* state = more().find(property)) return *state;
    auto& added = extras->toMany.emplace_back();
    added.property = static_cast<std::uint32_t>(property);
    return added;
}

} // namespace Tessarin
