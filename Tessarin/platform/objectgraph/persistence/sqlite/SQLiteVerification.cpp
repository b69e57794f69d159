#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteVerificationPrivate.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteFileChecksPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSearchTablesPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStoredModelPrivate.h"
#include "Tessarin/platform/sqlite/Transaction.h"

#include <fmt/format.h>
#include <sqlite3.h>

namespace Tessarin {
namespace {

std::string nameOf(NSPropertyDescription const& property) { return property.entity()->name() + "." + property.name(); }

} // namespace

SQLiteVerification::SQLiteVerification(SQLite::Connection& connection, SQLiteSchema const& schema)
    : connection_(connection), schema_(schema) {}

std::vector<std::string> SQLiteVerification::run() {
    guarded("The file's pages", [&] { checkPages(); });
    guarded("The description of the model", [&] { checkModel(); });
    for (auto const& table : schema_.tables()) {
        guarded("The records of " + table.root->name(), [&] { checkRecords(table); });
        for (auto const& column : table.columns)
            if (auto const* relationship = column.property ? column.property->asRelationship() : nullptr)
                guarded("The links of " + nameOf(*relationship), [&] { checkToOne(table, *relationship, column.name); });
    }
    for (auto const& link : schema_.links()) guarded("The links of " + nameOf(*link.relationship), [&] { checkToMany(link); });
    guarded("The next key", [&] { checkNextKey(); });
    return std::move(findings_);
}

/// A part that damage keeps from being looked at is itself a finding; what is no damage (memory, a lock) is an error.
void SQLiteVerification::guarded(std::string const& what, FunctionRef<void()> check) {
    try {
        check();
    } catch (SQLite::Failure const& failure) {
        auto const code = failure.primaryCode();
        if (code != SQLITE_CORRUPT && code != SQLITE_NOTADB && code != SQLITE_ERROR) throw;
        findings_.push_back(fmt::format("{} cannot be checked: {}.", what, failure.message()));
    }
}

void SQLiteVerification::tell(std::string const& count, std::string const& of, char const* what) {
    if (auto const found = connection_.integer(count); found != 0)
        findings_.push_back(fmt::format("{}: {} {}.", of, found, what));
}

void SQLiteVerification::checkPages() {
    auto const query = connection_.use("PRAGMA integrity_check(100)"); // of the indexes, too
    while (query->step())
        if (query->text(0) != "ok") findings_.push_back(fmt::format("The file is damaged: {}.", query->text(0)));
}

void SQLiteVerification::checkModel() {
    auto const& model = schema_.space().model();
    auto const numbers = storedNumbers(connection_, model);
    if (!numbers || connection_.text("SELECT value FROM tessarin_store WHERE key = 'model'") != storedModelText(model, *numbers))
        findings_.emplace_back("The description of the model differs from the model.");
    StoreMetadata metadata;
    metadata.read(connection_);
    if (metadata.get()["NSStoreModelVersionHashes"] != Value(modelHashes(model)))
        findings_.emplace_back("The hashes of the entities in the metadata differ from the model's.");
    for (auto const& index : schema_.indexes()) {
        auto const query = connection_.use(
            "SELECT 1 FROM sqlite_schema WHERE type = 'index' AND '\"' || replace(name, '\"', '\"\"') || '\"' = ?");
        query->bind(1, std::string_view{index.name});
        if (!query->step()) findings_.push_back(fmt::format("The index {} is missing.", index.name));
    }
}

void SQLiteVerification::checkRecords(SQLiteSchema::Table const& table) {
    auto const& name = table.root->name();
    auto const count = fmt::format("SELECT count(*) FROM {} WHERE ", table.name);
    tell(count + "id <= 0", name, "records have a key that is not positive");
    tell(fmt::format("{}typeof(version) <> 'integer' OR version NOT BETWEEN 1 AND {}", count, UINT32_MAX), name,
         "records have a version that none can have");
    if (table.hasEntityColumn)
        tell(fmt::format("{}entity NOT IN ({})", count, schema_.numbersInTreeOf(*table.root)), name,
             "records are of an unknown entity");
}

std::string SQLiteVerification::isMissing(NSEntityDescription const& destination, std::string const& column) const {
    auto const entity =
        destination.superentity() ? fmt::format(" WHERE entity IN ({})", schema_.numbersInTreeOf(destination)) : std::string();
    return fmt::format("{0} IS NOT NULL AND {0} NOT IN (SELECT id FROM {1}{2})", column, schema_.tableOf(destination).name,
                       entity);
}

void SQLiteVerification::checkToOne(SQLiteSchema::Table const& table, NSRelationshipDescription const& relationship,
                                    std::string const& column) {
    tell(fmt::format("SELECT count(*) FROM {} WHERE {}", table.name, isMissing(*relationship.destinationEntity(), column)),
         nameOf(relationship), "links lead to a record that is not there");
    auto const* inverse = relationship.isReciprocal() ? relationship.inverseRelationship() : nullptr;
    if (!inverse || inverse->isToMany() || inverse->isTransient()) return; // a to-many is stored here
    tell(fmt::format("SELECT count(*) FROM {0} AS a JOIN {1} AS b ON b.id = a.{2} WHERE b.{3} IS NOT a.id", table.name,
                     schema_.tableOf(*inverse->entity()).name, column, schema_.columnOf(*inverse)),
         nameOf(relationship), "links do not agree with their inverse");
}

void SQLiteVerification::checkToMany(SQLiteSchema::Link const& link) {
    auto const& relationship = *link.relationship;
    if (!link.position.empty()) // nobody has one where a migration has made the order, and nobody has changed it since
        tell(fmt::format("SELECT count(*) FROM {0} WHERE {1} IS NOT NULL AND typeof({2}) <> 'integer' AND ({2} IS NOT NULL OR "
                         "{1} IN (SELECT {1} FROM {0} WHERE {2} IS NOT NULL))",
                         link.table, link.owner, link.position),
             nameOf(relationship), "members have no place in the order");
    if (!link.isJoinTable || !link.isWrittenHere) return;
    tell(fmt::format("SELECT count(*) FROM {} WHERE {} OR {}", link.table, isMissing(*relationship.entity(), link.owner),
                     isMissing(*relationship.destinationEntity(), link.member)),
         nameOf(relationship), "links lead to a record that is not there");
    if (relationship.isReciprocal() && relationship.inverseRelationship() == &relationship)
        tell(fmt::format("SELECT count(*) FROM {0} AS a WHERE NOT EXISTS (SELECT 1 FROM {0} AS b WHERE b.owner = a.member AND "
                         "b.member = a.owner)",
                         link.table),
             nameOf(relationship), "links do not agree with their inverse");
}

/// FTS5 compares its words with the texts in the table. The check is a command to it, which counts as writing.
std::vector<std::string> SQLiteVerification::runSearches() {
    guarded("The index of words", [&] {
        SQLite::Transaction const transaction(connection_); // never committed
        if (!SQLiteSearchTables(connection_).areAsIn(schema_))
            return findings_.emplace_back("The indexes of words are not those of the model."), void();
        for (auto const& search : schema_.searches()) checkWords(search);
    });
    return std::move(findings_);
}

void SQLiteVerification::checkWords(SQLiteSchema::Search const& search) {
    try {
        connection_.execute(fmt::format("INSERT INTO {0} ({0}, rank) VALUES ('integrity-check', 1)", search.name));
    } catch (SQLite::Failure const& failure) {
        if (failure.primaryCode() != SQLITE_CORRUPT) throw;
        findings_.push_back(fmt::format("{}: the index of words does not agree with the texts.", search.table->root->name()));
    }
}

void SQLiteVerification::checkNextKey() {
    auto const next = connection_.integer("SELECT value FROM tessarin_store WHERE key = 'nextKey'");
    auto const largest = largestKey(connection_, schema_);
    if (next <= largest) findings_.push_back(fmt::format("The next key, {}, is not behind the largest, {}.", next, largest));
}

} // namespace Tessarin
