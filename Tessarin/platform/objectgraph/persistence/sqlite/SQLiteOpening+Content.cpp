// What a store's file holds: its tables, their pages, its model.
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteOpeningPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/migration/SQLiteMigrationPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteEmptinessPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteFileChecksPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteHistoryTablePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteLogCheckPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSearchTablesPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStoredModelPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/sqlite/RawFile.h"
#include "Tessarin/platform/sqlite/Transaction.h"

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <new>
#include <numeric>
#include <thread>

namespace Tessarin {
namespace {

constexpr std::int64_t smallFilePages = 64;

bool searchesTexts(NSManagedObjectModel const& model) {
    auto const isSearched = [](NSAttributeDescription const* attribute) { return attribute->isFullText(); };
    return std::ranges::any_of(model.entities(),
                               [&](auto const& entity) { return std::ranges::any_of(entity->attributes(), isSearched); });
}

} // namespace

/// With what its connections are opened from now on.
SQLite::ConnectionOptions SQLiteOpening::optionsOfStore() const {
    auto options = connectionOptions_;
    options.hasFullText = searchesTexts(space_->model());
    return options;
}

SchemaLook SQLiteOpening::makeIfEmpty(SQLite::Connection& connection) {
    if (auto const other = connection.integer("PRAGMA application_id"); other != 0 && other != storeApplicationID)
        throw Refused::because("it is another application's: " + path_);
    connection.execute("COMMIT; PRAGMA journal_mode = WAL");
    {
        SQLite::Transaction transaction(connection);
        if (hasNoSchema(connection)) { // unless another process was faster
            auto const pageSize = static_cast<std::uint32_t>(connection.integer("PRAGMA page_size"));
            if (hasUnreadableCommits(path_, connection.readableLogPages(), pageSize))
                throw Refused::because("its log is damaged: " + path_);
            create(connection);
        }
        transaction.commit();
    }
    connection.use("BEGIN")->run();
    return lookAtSchema(connection);
}

void SQLiteOpening::create(SQLite::Connection& connection) {
    std::vector<std::int64_t> numbers(space_->model().entities().size());
    std::iota(numbers.begin(), numbers.end(), 1);
    createStoreTables(connection, *space_, numbers, {});
}

void SQLiteOpening::checkFormat(SQLite::Connection& connection) {
    auto const header = headerOf(connection);
    if (header.application != storeApplicationID) throw Refused::because("it is another application's: " + path_);
    format_ = header.format;
    isSmall_ = header.pages <= smallFilePages;
    if (format_ > storeFormatVersion)
        throw Postponed(storeError(StoreErrorCode::StoreOpen, "The store was written by a newer version: " + path_));
}

/// A look whose cost does not grow with the file: a small one is checked wholly, of a large one the ends of every table.
void SQLiteOpening::checkPages(SQLite::Connection& connection) {
    if (isSmall_) checkAllPages(connection);
    own_ = SQLiteOwnTables::readFrom(connection);
    if (!isSmall_) requireReadableEnds(connection, own_.tables());
}

/// A file is damaged when three looks say so, each without what the one before left in memory, and when nothing keeps it from
/// being read: SQLite tells a page that it could not read as one more finding ("unable to get the page. error code=266"), and
/// that is for waiting, not for refusing.
void SQLiteOpening::checkAllPages(SQLite::Connection& connection) const {
    std::string problem;
    for (int look = 0; look < 3; ++look) {
        if (look != 0) {
            connection.execute("PRAGMA shrink_memory");
            std::this_thread::sleep_for(std::chrono::milliseconds(40));
        }
        problem = connection.text("PRAGMA quick_check(1)");
        if (problem == "ok") return;
        if (problem.empty()) throw std::bad_alloc();
        requireReadable(problem);
    }
    throw Refused::because("it is damaged: " + problem);
}

void SQLiteOpening::requireReadable(std::string const& problem) const {
    // Of a free page it does not say why; one beyond the end of the file is told otherwise.
    bool const isUnreadablePage = problem.find("failed to get page") != problem.npos;
    if (isUnreadablePage) throw Postponed(storeError(StoreErrorCode::StoreOpen, "The store cannot be read: " + problem));
    static constexpr std::string_view unreadable = "error code";
    if (auto const at = problem.find(unreadable); at != problem.npos) {
        int const code = std::atoi(problem.c_str() + at + unreadable.size() + 1) & 0xFF;
        if (code != SQLITE_CORRUPT && code != SQLITE_NOTADB)
            throw Postponed(storeError(StoreErrorCode::StoreOpen, "The store cannot be read: " + problem));
    }
    SQLite::RawFile file(path_); // a stream would drop this process's locks when it closes
    std::vector<std::byte> buffer(1 << 16);
    for (std::int64_t at = 0; file.read(at, buffer);) at += static_cast<std::int64_t>(buffer.size());
}

std::optional<std::vector<std::int64_t>> SQLiteOpening::numbersOfSameModel() const {
    auto numbers = own_.numbersOf(space_->model());
    if (numbers && own_.model != storedModelText(space_->model(), *numbers)) numbers.reset();
    return numbers;
}

std::vector<std::int64_t> SQLiteOpening::bringToModel(SQLite::Connection& connection, SQLiteOpeningProgress& progress) {
    if (auto numbers = numbersOfSameModel()) {
        if (format_ >= storeFormatVersion) return *std::move(numbers);
        connection.use("COMMIT")->run();
        {
            SQLite::Transaction transaction(connection);
            bringToFormat(connection);
            transaction.commit();
        }
        connection.use("BEGIN")->run();
        checkFormat(connection);
        own_ = SQLiteOwnTables::readFrom(connection);
        return bringToModel(connection, progress); // another process may have migrated it in between
    }
    if (!options_.infersMapping)
        throw Refused::because("it was written with another model, and inferring a mapping is not asked for");
    connection.use("COMMIT")->run();
    connection.addFullText(); // there may be indexes of words by now that have to go
    SQLite::Transaction transaction(connection);
    checkFormat(connection);
    own_ = SQLiteOwnTables::readFrom(connection);
    if (numbersOfSameModel()) { // another process was faster, and who opened the file after it goes by its generation
        transaction.commit();
        connection.use("BEGIN")->run();
        own_ = SQLiteOwnTables::readFrom(connection);
        return bringToModel(connection, progress);
    }
    auto const stored = storedModelOfText(connection.text("SELECT value FROM tessarin_store WHERE key = 'model'"));
    if (!stored) throw Refused::because("the description of its model is damaged");
    try {
        bringToFormat(connection);
        auto result = SQLiteMigration(connection, *stored, *space_, progress).run();
        purgeHistory(connection);
        transaction.commit();
        isBroughtToModel_ = true;
        progress.end();
        connection.use("BEGIN")->run();
        own_ = SQLiteOwnTables::readFrom(connection);
        return result;
    } catch (Refused const&) {
        Ref<NSError> ignored;
        plan_ = MigrationPlan::between(*stored->model, space_->model(), ignored);
        throw;
    }
}

void SQLiteOpening::requireFullText(SQLite::Connection& connection, SchemaLook const& look) const {
    if ((look.hasSearches || searchesTexts(space_->model())) && !connection.addFullText())
        throw Postponed(storeError(StoreErrorCode::StoreOpen,
                                   "The store has texts that are searched, which takes an SQLite with FTS5: " + path_));
}

void SQLiteOpening::bringSearchesUp(SQLite::Connection& connection, SQLiteSchema const& schema, SQLiteOpeningProgress& progress) {
    SQLiteSearchTables tables(connection);
    if (tables.areAsIn(schema, own_.search)) return;
    connection.use("COMMIT")->run();
    connection.addFullText(); // likewise
    SQLite::Transaction transaction(connection);
    if (!tables.areAsIn(schema)) { // unless another process was faster
        tables.dropOthers(schema, [](auto const&) { return false; });
        std::vector<std::int64_t> counts;
        for (auto const& search : schema.searches()) {
            counts.push_back(connection.integer("SELECT count(*) FROM " + search.table->name));
            progress.expect(counts.back());
        }
        for (std::size_t at = 0; at < counts.size(); ++at) {
            auto const& search = schema.searches()[at];
            progress.begin(StoreProgress::Stage::MakingIndex, search.table->root->name(), counts[at]);
            tables.make(search);
            tables.fill(search);
        }
        tables.writeVersion(schema);
        // Who has the file open goes by the rules of before, and would take out words that nobody put in.
        connection.execute("UPDATE tessarin_store SET value = value + 1 WHERE key = 'modelGeneration'");
    }
    transaction.commit();
    isBroughtToModel_ = true;
    progress.end();
    connection.use("BEGIN")->run();
    own_ = SQLiteOwnTables::readFrom(connection);
}

} // namespace Tessarin
