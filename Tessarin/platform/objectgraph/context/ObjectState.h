#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"
#include "Tessarin/platform/objectgraph/persistence/stores/RecordKey.h"
#include "Tessarin/platform/queues/Retained.h"
#include <cstdint>
#include <memory>

namespace Tessarin {

class ContextLink;
struct FaultBatch;
struct ObjectExtras;
struct ToManyState;

/// Ends an object's extras, which only the engine knows (ObjectExtrasPrivate.h).
struct ObjectExtrasEnd {
    TESSARIN_API void operator()(ObjectExtras* extras) const noexcept;
};

TESSARIN_API void retainObject(FaultBatch& batch, std::uint32_t count = 1) noexcept;
TESSARIN_API void releaseObject(FaultBatch& batch) noexcept;
using FaultBatchRef = Retained<FaultBatch>;

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
    std::unique_ptr<ObjectExtras, ObjectExtrasEnd> extras;
    std::uint8_t flags = 0;
    std::uint32_t changedPlace = 0; // in the context's list of changed objects, when it is there

    ContextLink* link() const noexcept;
    bool has(Flag flag) const noexcept { return flags & flag; }
    void set(Flag flag) noexcept { flags = static_cast<std::uint8_t>(flags | flag); }
    void clear(Flag flag) noexcept { flags = static_cast<std::uint8_t>(flags & ~flag); }
    ObjectExtras& more();
    ToManyState& toMany(std::size_t property);
};

} // namespace Tessarin
