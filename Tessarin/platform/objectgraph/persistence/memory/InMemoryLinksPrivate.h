#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <unordered_map>

namespace Tessarin {

/// Who is linked to whom in the store without a file, from both ends, so that neither a change nor a deletion looks at records
/// that it does not touch. Guarded by the store's lock.
class InMemoryLinks {
public:
    explicit InMemoryLinks(NSManagedObjectModel const& model);

    /// The to-ones of a record: as they were and as they are. Null: it did not, or does not, exist.
    void exchange(RecordKey key, Row const* before, Row const* after);
    /// What was added to, removed from and reordered in the to-many relationships of a record that exists.
    void apply(RecordChange const& change);
    /// In their order when the relationship has one.
    std::vector<RecordKey> members(NSRelationshipDescription const& relationship, RecordKey owner) const;
    /// Takes a record that does not exist out of every to-many; `referring` hears of the records whose to-one leads to it.
    void forget(NSEntityDescription const& rootEntity, RecordKey key,
                FunctionRef<void(RecordKey owner, NSRelationshipDescription const& toOne)> referring);

private:
    using Links = std::unordered_map<RecordKey, std::vector<RecordKey>>;
    Links& reverseOf(NSRelationshipDescription const& relationship);
    static void drop(Links& links, RecordKey owner, RecordKey member);
    void applyOrder(RelationshipChange const& changed, RecordKey owner);

    std::vector<NSRelationshipDescription const*> relationships_; // that are stored, each once
    std::unordered_map<NSRelationshipDescription const*, Links> links_;     // the members of each to-many
    std::unordered_map<NSRelationshipDescription const*, Links>
        referring_; // of one without an inverse list: who leads to a record
};

} // namespace Tessarin
