#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/RecordKey.h"
#include "Tessarin/platform/runtime/Value.h"
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

class NSEntityDescription;
class NSManagedObjectID;
class NSPersistentStoreCoordinator;
class NSPropertyDescription;

/// A place in a store's history: behind one of its transactions. May be kept as its text; of use with that very store only.
struct HistoryToken {
    std::int64_t history = 0;     // the name of the history
    std::int64_t transaction = 0; // counts up

    TESSARIN_API std::string text() const;
    /// Absent for a text that is none.
    TESSARIN_API static std::optional<HistoryToken> fromText(std::string_view text);
    friend auto operator<=>(HistoryToken const&, HistoryToken const&) = default;
};

/// What happened to some records of one entity, whose keys lie between two. The model's objects live as long as the coordinator.
struct HistoryChange {
    enum class Kind { Inserted, Updated, Deleted };
    /// Each: it happened to all records with these keys, and each of them is of this very entity. Range: a request did not look
    /// at single records; it happened to those of the entity and its sub-entities that there were, an update perhaps only to some.
    enum class Extent { Each, Range };

    Kind kind = Kind::Inserted;
    Extent extent = Extent::Each;
    NSEntityDescription const* entity = nullptr;
    RecordKey first = 0, last = 0;
    std::vector<NSPropertyDescription const*> updated = {}; // attributes and relationships
    /// Of a deleted record, which is named alone: the values of the attributes that the model has kept (`keptInHistory`).
    Dictionary kept = {};

    std::uint64_t count() const noexcept { return static_cast<std::uint64_t>(last - first) + 1; }
    /// The identities of the records; none for a range.
    TESSARIN_API std::vector<Ref<NSManagedObjectID>> objectIDs(NSPersistentStoreCoordinator& coordinator) const;
};

/// One transaction: what a context saved, or a batch request did. What workers had handed up and a root context saved at once is
/// one for each of them that has an author or a name of its own.
struct HistoryTransaction {
    HistoryToken token;
    NSDate date;
    std::string author; // `setTransactionAuthor` of the context that made the changes; mostly empty
    std::string context; // its name
    std::int64_t process = 0; // number of the process that saved it
    bool isOwn = false; // it was saved through this very store object
    std::vector<HistoryChange> changes;
};

} // namespace Tessarin
