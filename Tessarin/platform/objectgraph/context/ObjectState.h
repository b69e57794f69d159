#pragma once
#include "Tessarin/platform/objectgraph/context/ContextLink.h"
#include "Tessarin/platform/objectgraph/context/FaultBatch.h"
#include "Tessarin/platform/objectgraph/context/KeySet.h"
#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"
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
    KeySet members; // when loaded, in their order where the relationship has one
    KeySet added, removed;
    bool isReordered = false;
    bool holdsTemporaries = false; // perhaps: keys that may have given way to permanent ones

    bool isChanged() const { return !added.empty() || !removed.empty() || isReordered; }
    template <class Translate> void toPermanent(Translate translate) {
        if (!holdsTemporaries) return;
        for (auto* keys : {&members, &added, &removed}) keys->translate(translate);
    }
};

/// What only some objects have: unsaved values, read relationships, an identity that somebody asked for.
struct ObjectExtras {
    using Values = std::vector<std::pair<std::uint32_t, Value>, ObjectSlabAllocator<std::pair<std::uint32_t, Value>>>;
    Values values; // by property: unsaved attributes, and to-ones as keys (0: none)
    std::vector<ToManyState> toMany;
    Ref<NSManagedObjectID> id;
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

/// The engine's part of a managed object. An object that nobody changed is a pointer to its row and little else.
struct ObjectState {
    enum Flag : std::uint8_t {
        Fault = 1,     // its values have not been asked for yet
        Inserted = 2,
        Deleted = 4,   // pending, or saved when it has left its context
        Updated = 8,
        Changed = 16,  // the context keeps it in its list of changed objects
        Gone = 32,     // its record does not exist (any more)
        Published = 64, // inserted, and visible to child contexts under its temporary key
        Unshown = 128,  // changed since child contexts were last shown what is unsaved
    };

    FaultBatchRef batch; // null only before the object is in a context
    RecordKey key = 0;
    RowLayout const* layout = nullptr;
    RowRef row;
    std::unique_ptr<ObjectExtras> extras;
    std::uint8_t flags = 0;
    std::uint32_t changedPlace = 0; // in the context's list of changed objects, when it is there

    ContextLink* link() const noexcept { return batch ? &batch->link : nullptr; }
    bool has(Flag flag) const noexcept { return flags & flag; }
    void set(Flag flag) noexcept { flags = static_cast<std::uint8_t>(flags | flag); }
    void clear(Flag flag) noexcept { flags = static_cast<std::uint8_t>(flags & ~flag); }
    ObjectExtras& more() {
        if (!extras) extras = std::make_unique<ObjectExtras>();
        return *extras;
    }
    ToManyState& toMany(std::size_t property) {
        if (auto* state = more().find(property)) return *state;
        auto& added = extras->toMany.emplace_back();
        added.property = static_cast<std::uint32_t>(property);
        return added;
    }
};

} // namespace Tessarin
