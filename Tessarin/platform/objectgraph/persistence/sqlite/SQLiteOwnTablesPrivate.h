#pragma once
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <optional>
#include <string>
#include <vector>

namespace Tessarin {

/// What the library's own tables say of a store, read at once: a statement for each single question costs an opening more than all
/// else that is its own. As old as the transaction that it was read in.
struct SQLiteOwnTables {
    struct Entity {
        std::int64_t number = 0;
        std::string name, table;
    };
    std::vector<Entity> entities;
    std::string model; // the description of it
    std::string search; // by which rules texts were taken apart; empty: none is searched
    std::int64_t modelGeneration = 0;

    /// Within a transaction of the caller.
    static SQLiteOwnTables readFrom(SQLite::Connection& connection);

    /// The numbers that the file gave to the entities of the model that is wanted; absent when it does not know one of them.
    std::optional<std::vector<std::int64_t>> numbersOf(NSManagedObjectModel const& wanted) const;
    /// Each once, in quotes.
    std::vector<std::string> tables() const;
};

} // namespace Tessarin
