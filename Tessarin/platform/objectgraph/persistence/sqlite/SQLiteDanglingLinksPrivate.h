#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/RowConflictsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteLinkWriterPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderPrivate.h"
#include <array>

namespace Tessarin {

/// Keeps links to records that do not exist out of the file: those to records that a save deletes, made by somebody who did
/// not know, and those that a save makes to records that somebody else deleted. Looks only at what the save touched.
class TESSARIN_API SQLiteDanglingLinks {
public:
    SQLiteDanglingLinks(SQLite::Connection& connection, SQLiteSchema const& schema, SQLiteLinkWriter& links);

    void forget();
    /// Takes note of what a written record refers to.
    void note(RecordChange const& change);
    void noteDeleted(NSEntityDescription const& rootEntity, std::span<RecordKey const> keys);
    /// After everything is written.
    void cut();
    /// Cuts every link to records that are already deleted; the keys are sorted.
    void cutAllTo(NSEntityDescription const& rootEntity, std::vector<RecordKey> keys);
    /// The same where none is left. The records that lost a link are not noted.
    void cutAllTo(NSEntityDescription const& rootEntity);
    struct Cut {
        NSEntityDescription const* rootEntity;
        RecordKey key;
        NSPropertyDescription const* property;
    };
    /// The records that lost a to-one link.
    std::span<Cut const> changed() const noexcept { return changed_; }
    /// The columns that lead to records of a table.
    void forReferencesTo(NSEntityDescription const& rootEntity,
                         FunctionRef<void(NSPropertyDescription const& property)> each) const;
    /// The records that lost a link and were not told otherwise; after the commit of those sets.
    void tell(SQLiteReader& reader, std::span<Ref<ChangeSet const> const> sets, SaveOutcome& outcome) const;

private:
    struct Table {
        std::vector<RecordKey> targets; // keys referred to, some more than once
        std::vector<RecordKey> deleted; // by the save
        std::vector<RecordKey> missing; // of both, sorted
        bool isReferredInVain = false;  // to one of the missing, by what was written
        std::array<RecordKey, 1024> recent{}; // by the lowest bits: most links lead to few records
        std::vector<SQLiteSchema::Column const*> references; // columns that lead to this table…
        std::vector<SQLiteSchema::Table const*> referring;   // … and where each stands
    };
    struct Reference {
        std::size_t cell = 0, table = 0;
    };
    void noteTarget(Table& table, RecordKey key);
    std::vector<Reference> const& referencesOf(RowLayout const& layout);
    std::size_t tableOf(NSEntityDescription const& entity) const;
    bool isMissing(NSEntityDescription const& entity, RecordKey key) const;
    void findMissing(std::size_t table);
    void cutReferences(Table const& table);

    SQLite::Connection& connection_;
    SQLiteSchema const& schema_;
    SQLiteLinkWriter& links_;
    std::vector<Table> tables_; // as the schema's
    std::vector<std::optional<std::vector<Reference>>> references_; // by index of the entity
    std::vector<Cut> changed_;
    /// Records of which only links were changed: nobody looked at their versions, so they may be gone.
    std::vector<std::pair<NSEntityDescription const*, RecordKey>> linkedOnly_;
};

} // namespace Tessarin
