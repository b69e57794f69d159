#pragma once
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreMetadataPrivate.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/sqlite/Connection.h"

namespace Tessarin {

/// Looks at all of a store's file and changes nothing. Takes time in proportion to the file.
class TESSARIN_API SQLiteVerification {
public:
    /// The caller holds a read transaction, so that all is one state of the file.
    SQLiteVerification(SQLite::Connection& connection, SQLiteSchema const& schema);

    /// A sentence for each finding. Throws ErrorException when it cannot look.
    std::vector<std::string> run();
    /// The same for the indexes of words. Takes the file's write lock, so that savers wait for it; not for a store to be read only.
    std::vector<std::string> runSearches();

private:
    void checkPages();
    void checkModel();
    void checkRecords(SQLiteSchema::Table const& table);
    void checkToOne(SQLiteSchema::Table const& table, NSRelationshipDescription const& relationship, std::string const& column);
    void checkToMany(SQLiteSchema::Link const& link);
    void checkNextKey();
    void checkWords(SQLiteSchema::Search const& search);
    /// Says `what` with the count that the query gives, unless that is 0.
    void tell(std::string const& count, std::string const& of, char const* what);
    void guarded(std::string const& what, FunctionRef<void()> check);
    std::string isMissing(NSEntityDescription const& destination, std::string const& column) const;

    SQLite::Connection& connection_;
    SQLiteSchema const& schema_;
    std::vector<std::string> findings_;
};

} // namespace Tessarin
