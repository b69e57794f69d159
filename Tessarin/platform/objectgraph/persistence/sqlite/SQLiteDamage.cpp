#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteDamagePrivate.h"

#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <fmt/format.h>
#include <sqlite3.h>

namespace Tessarin {

SQLiteDamage::SQLiteDamage(SQLiteSchema const& schema, std::string path, SQLite::ConnectionOptions options)
    : schema_(schema), path_(std::move(path)), options_(std::move(options)) {}

Ref<NSError> SQLiteDamage::errorOf(SQLite::Failure const& failure, std::string const& table) {
    if (failure.primaryCode() != SQLITE_CORRUPT) return failure.error();
    Dictionary more{{NSUnderlyingErrorKey, Value(failure.error())}, {NSFilePathErrorKey, Value(path_)}};
    auto const damaged = damagedTable(table);
    if (damaged.empty())
        return storeError(StoreErrorCode::StoreDamaged, "The store is damaged: " + failure.message(), std::move(more));
    auto const content = whatIsIn(damaged);
    more.set("entity", content);
    return storeError(StoreErrorCode::StoreDamaged, fmt::format("The store is damaged: the table of {} cannot be read.", content),
                      std::move(more));
}

/// The asked one first, then all; empty when all are sound (an index of the library's own, or damage that has passed).
std::string SQLiteDamage::damagedTable(std::string const& table) {
    std::lock_guard const hold(mutex_);
    if (known_ == table) return known_;
    std::vector<std::string> tables{table};
    for (auto const& each : schema_.tables()) tables.push_back(each.name);
    for (auto const& link : schema_.links())
        if (link.isJoinTable) tables.push_back(link.table);
    try {
        SQLite::Connection connection(path_, options_);
        for (auto const& each : tables) {
            SQLite::Statement check(connection, fmt::format("PRAGMA quick_check({})", each));
            if (check.step() && check.text(0) != "ok") return known_ = each;
        }
    } catch (SQLite::Failure const&) { // the error is told without the table's name
    }
    return {};
}

std::string SQLiteDamage::whatIsIn(std::string const& table) const {
    for (auto const& each : schema_.tables())
        if (each.name == table) return each.root->name();
    for (auto const& link : schema_.links())
        if (link.table == table) return link.relationship->entity()->name() + "." + link.relationship->name();
    return table;
}

} // namespace Tessarin
