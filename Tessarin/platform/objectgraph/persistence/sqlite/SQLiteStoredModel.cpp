#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStoredModelPrivate.h"

#include "Tessarin/platform/foundation/values/NSUUID.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteHistoryTablePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteOwnTablesPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSearchTablesPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreMetadataPrivate.h"

#include <fmt/format.h>

namespace Tessarin {

void createStoreTables(SQLite::Connection& connection, RowSpace& space, std::vector<std::int64_t> const& numbers,
                       Dictionary metadata) {
    connection.execute(fmt::format("PRAGMA application_id = {}", storeApplicationID));
    connection.execute(fmt::format("PRAGMA user_version = {}", storeFormatVersion));
    connection.execute("CREATE TABLE tessarin_store (key TEXT PRIMARY KEY, value) WITHOUT ROWID;"
                       "CREATE TABLE tessarin_metadata (key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;"
                       "CREATE TABLE tessarin_entity (number INTEGER PRIMARY KEY, name TEXT NOT NULL, \"table\" TEXT NOT NULL);"
                       "INSERT INTO tessarin_store VALUES ('nextKey', 1), ('modelGeneration', 1)");
    createHistory(connection);
    SQLiteSchema const schema(space, numbers);
    for (auto const& statement : schema.createStatements()) connection.execute(statement);
    if (!schema.searches().empty()) SQLiteSearchTables(connection).writeVersion(schema);
    writeStoredModel(connection, space, numbers);

    metadata.set("NSStoreType", "SQLite");
    if (metadata["NSStoreUUID"].text().empty()) metadata.set("NSStoreUUID", NSUUID::UUID().UUIDString());
    metadata.set("NSStoreModelVersionHashes", modelHashes(space.model()));
    StoreMetadata written;
    written.set(std::move(metadata));
    written.write(connection);
}

Dictionary modelHashes(NSManagedObjectModel const& model) {
    Dictionary hashes;
    for (auto const& [name, hash] : model.entityVersionHashesByName()) hashes.set(name, hash);
    return hashes;
}

void writeStoredModel(SQLite::Connection& connection, RowSpace& space, std::vector<std::int64_t> const& numbers) {
    SQLiteSchema const schema(space, numbers);
    connection.execute("DELETE FROM tessarin_entity");
    auto const add = connection.use("INSERT INTO tessarin_entity (number, name, \"table\") VALUES (?, ?, ?)");
    for (auto const& entity : space.model().entities()) {
        auto const table = unquoted(schema.tableOf(*entity).name);
        add->bind(1, numbers[entity->index()]);
        add->bind(2, std::string_view{entity->name()});
        add->bind(3, std::string_view{table});
        add->run();
    }
    auto const text = storedModelText(space.model(), numbers);
    auto const put = connection.use("INSERT OR REPLACE INTO tessarin_store (key, value) VALUES ('model', ?)");
    put->bind(1, std::string_view{text});
    put->run();
}

std::optional<std::vector<std::int64_t>> storedNumbers(SQLite::Connection& connection, NSManagedObjectModel const& model) {
    SQLiteOwnTables own;
    auto const query = connection.use("SELECT number, name FROM tessarin_entity");
    while (query->step()) own.entities.push_back({query->integer(0), std::string(query->text(1)), {}});
    return own.numbersOf(model);
}

} // namespace Tessarin
