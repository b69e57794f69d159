#pragma once
#include "Tessarin/platform/objectgraph/persistence/NSPersistentStore.h"
#include "Tessarin/platform/objectgraph/persistence/SQLiteRowDecoderPrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <map>

namespace Tessarin {

class SQLTranslation;

/// Answers questions over one connection. Used by one thread at a time; what fails throws ErrorException.
class TESSARIN_API SQLiteReader {
public:
    SQLiteReader(SQLiteSchema const& schema, SQLite::Connection& connection);

    void fetch(StoreQuery const& query, StoreAnswer& answer);
    void count(StoreQuery const& query, std::size_t& count, bool& complete);
    void rows(NSEntityDescription const& rootEntity, std::span<RecordKey const> keys, FunctionRef<void(RowRef)> each);
    RowRef row(NSEntityDescription const& rootEntity, RecordKey key);
    void members(NSRelationshipDescription const& relationship, std::span<RecordKey const> owners,
                 FunctionRef<void(RecordKey owner, RecordKey member)> each);

private:
    bool mayBeLong(NSEntityDescription const& entity);
    void readByKeys(SQLite::Statement& statement, StoreQuery const& query, std::vector<RowRef>& rows);
    std::string conditionOf(StoreQuery const& query, SQLTranslation const& translation) const;
    SQLiteRowDecoder& decoderFor(NSEntityDescription const& entity, bool includesSubentities);

    SQLiteSchema const& schema_;
    SQLite::Connection& connection_;
    std::map<std::pair<std::size_t, bool>, SQLiteRowDecoder> decoders_;
};

/// Sorted keys that lie so close together that reading the whole range costs less than looking each up.
TESSARIN_API bool areDense(std::span<RecordKey const> sortedKeys);

} // namespace Tessarin
