#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include <string>

namespace Tessarin {

/// The domain of the object graph's errors.
inline constexpr char const* ObjectGraphErrorDomain = "TessarinObjectGraph";

/// In an error's userInfo: the StoreRefusal of a file that was refused.
inline constexpr char const* StoreRefusalErrorKey = "StoreRefusal";

enum class StoreErrorCode : std::int64_t {
    InvalidStoreType = 134000,
    StoreOpen = 134080,
    StorePlace = 134081, // where no store can ever be
    StoreReadOnly = 134082,
    StoreOpeningCancelled = 134083,
    StoreClosed = 134084, // on purpose
    StoreIncompatibleModel = 134100,
    StoreSave = 134030,
    SaveWithoutEnd = 134031, // hooks of objects that save or change others for ever
    StoreFetch = 134060,
    StoreDamaged = 134061,
    FetchCancelled = 134062,
    HistoryMissing = 134300,
    HistoryPurged = 134301,
    HistoryDamaged = 134302,
    MergeConflict = 133020,
    ConstraintConflict = 133021,
    ObjectMissing = 133000,
    NeedsRefused = 133022,
    UnsupportedAttribute = 134200,
    UnknownEntity = 134210,
    ContextWithoutStore = 134220,
    RelationshipDenied = 1600,
    ValueTooWide = 1660,
    ValueTooBig = 1661,
    SeveralErrors = 1560,
};

/// An error of the object graph with its text.
inline Ref<NSError> storeError(StoreErrorCode code, std::string text, Dictionary more = {}) {
    more.set(NSLocalizedDescriptionKey, std::move(text));
    return NSError::errorWithDomain(ObjectGraphErrorDomain, static_cast<std::int64_t>(code), std::move(more));
}

/// What is told where a store is used after it was closed.
inline Ref<NSError> storeClosed(std::string const& place) {
    return storeError(StoreErrorCode::StoreClosed, "The store was closed: " + place);
}

} // namespace Tessarin
