// What is done to all records of a table, beside what SQLite does on the same file: as ratios of wall time.
#include "Tessarin/platform/objectgraph/context/WholeDeletionPrivate.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "benchmarks/store/OurModel.h"
#include "benchmarks/store/OurRows.h"
#include "benchmarks/store/RawDatabase.h"
#include "benchmarks/support/Report.h"

#include <filesystem>
#include <fmt/format.h>

namespace Tessarin::benchmarks {
namespace {

constexpr std::size_t books = 100'000;

/// A file with all books, and fresh copies of it.
class Original {
public:
    explicit Original(std::string const& folder)
        : file_(std::filesystem::path(folder) / "whole.db"), copy_(std::filesystem::path(folder) / "copy.db") {
        auto const library = Library::generate(books);
        Stack stack(file_, Synchronous::Normal);
        auto const worker = stack.makeWorker();
        worker->performBlockAndWait(
            [&] { LibraryInserter(*worker, library, LibraryInserter::Start::Empty).insertBooks(library.books); });
        stack.saveToDisk(*worker);
    }
    std::string const& file() const { return file_; }
    std::string const& copy() const {
        for (char const* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(copy_ + suffix);
        std::filesystem::copy_file(file_, copy_);
        return copy_;
    }

private:
    std::string file_, copy_;
};

/// So that the compiler leaves what was summed up.
void keep(double sum) {
    if (sum <= 0) throw std::runtime_error("nothing was read");
}

double secondsInRoot(Stack const& stack, FunctionRef<void(NSManagedObjectContext&)> work) {
    double seconds = 0;
    stack.root->performBlockAndWait([&] { seconds = secondsOf([&] { work(*stack.root); }); });
    return seconds;
}

double secondsRaw(std::string const& file, char const* sql, Synchronous synchronous = Synchronous::Normal) {
    RawDatabase database(file, synchronous);
    database.execute("PRAGMA secure_delete = OFF"); // as the store has it
    return secondsOf([&] { database.execute(sql); });
}

constexpr char const* rawDeletion = "BEGIN; DELETE FROM Book; DELETE FROM Book_tags; COMMIT";

double batchDeletion(Original const& original) {
    Stack const stack(original.copy(), Synchronous::Normal);
    return secondsInRoot(stack, [](auto& context) {
        Ref<NSError> error;
        context.executeRequest(*make<NSBatchDeleteRequest>(make<NSFetchRequest>("Book")), error);
        if (error) throw ErrorException(error);
    });
}

double deletionOfObjects(Original const& original) {
    Stack const stack(original.copy(), Synchronous::Normal);
    return secondsInRoot(stack, [](auto& context) {
        for (auto const& book : context.template allObjects<Book>()) context.deleteObject(*book);
        saveOrThrow(context);
    });
}

double deletionOfEverything(Original const& original) {
    Stack const stack(original.copy(), Synchronous::Normal);
    return secondsInRoot(stack, [](auto& context) {
        Ref<NSError> error;
        if (!deletesEverything(context, error)) throw std::runtime_error("objects were made");
        if (error) throw ErrorException(error);
    });
}

double rawDeletionOfEverything(Original const& original) {
    return secondsRaw(original.copy(),
                      "BEGIN; DELETE FROM Author; DELETE FROM Tag; DELETE FROM Book; DELETE FROM Book_tags; COMMIT");
}

/// As a program does that has something to say about each.
double rawDeletionOneByOne(Original const& original) {
    RawDatabase database(original.copy(), Synchronous::Normal);
    database.execute("PRAGMA secure_delete = OFF");
    return secondsOf([&] {
        database.execute("BEGIN");
        std::vector<std::int64_t> keys;
        for (auto query = database.prepare("SELECT id, title, year, author FROM Book"); query.step();)
            keys.push_back(query.integer(0));
        auto removeLinks = database.prepare("DELETE FROM Book_tags WHERE owner = ?");
        auto remove = database.prepare("DELETE FROM Book WHERE id = ?");
        for (auto const key : keys)
            for (auto* statement : {&removeLinks, &remove}) {
                statement->bind(1, key);
                statement->run();
            }
        database.execute("COMMIT");
    });
}

double rawDeletionOfAll(Original const& original) { return secondsRaw(original.copy(), rawDeletion); }

double walkOverMembers(Original const& original) {
    Stack const stack(original.file(), Synchronous::Normal);
    double prices = 0;
    double const seconds = secondsInRoot(stack, [&](auto& context) {
        for (auto const& author : context.template allObjects<Author>())
            for (auto const& book : author->mutableSetValueForKey("books").allObjects())
                prices += static_cast<Book&>(*book).get(Book::price);
    });
    keep(prices);
    return seconds;
}

double rawWalk(Original const& original) {
    RawDatabase database(original.file(), Synchronous::Normal);
    double prices = 0;
    double const seconds = secondsOf([&] {
        auto query = database.prepare("SELECT a.id, b.* FROM Author a JOIN Book b ON b.author = a.id ORDER BY a.id");
        auto const price = 6;
        while (query.step()) prices += query.real(price);
    });
    keep(prices);
    return seconds;
}

/// Opening with one more optional attribute of books, or with none.
double openings(std::string const& file, bool adds) {
    auto definition = Stack::model()->definition();
    if (adds)
        for (auto& entity : definition.entities)
            if (entity.name == "Book") entity.attributes.push_back({"note", NSAttributeType::String, {}});
    auto const coordinator = make<NSPersistentStoreCoordinator>(NSManagedObjectModel::modelWithDefinition(std::move(definition)));
    Ref<NSError> error;
    return secondsOf([&] {
        if (!coordinator->addPersistentStoreWithType(
                NSSQLiteStoreType, {}, NSURL::fileURLWithPath(file),
                {{NSMigratePersistentStoresAutomaticallyOption, true}, {NSInferMappingModelAutomaticallyOption, true}}, error))
            throw ErrorException(error);
    });
}

double openingWithOneMore(Original const& original) { return openings(original.copy(), true); }
double openingAndRawColumn(Original const& original) {
    auto const& file = original.copy();
    // As durable as a migration is.
    return openings(file, false) + secondsRaw(file, "ALTER TABLE Book ADD COLUMN note TEXT", Synchronous::Full);
}

double readThrough(Original const& original, std::size_t batchSize) {
    Stack const stack(original.file(), Synchronous::Normal);
    double prices = 0;
    double const seconds = secondsInRoot(stack, [&](auto& context) {
        auto const request = make<NSFetchRequest>("Book");
        request->setFetchBatchSize(batchSize);
        Ref<NSError> error;
        if (batchSize == 0)
            for (auto const& book : context.executeFetchRequest(*request, error))
                prices += static_cast<Book&>(*book).get(Book::price);
        else
            for (auto const list = context.fetchObjects(*request, error); auto const& book : list)
                prices += static_cast<Book&>(*book).get(Book::price);
        if (error) throw ErrorException(error);
    });
    keep(prices);
    return seconds;
}
double readInBatches(Original const& original) { return readThrough(original, 100); }
double readAtOnce(Original const& original) { return readThrough(original, 0); }

struct WholeRow {
    char const* id;
    char const* what;
    double target;
    double (*ours)(Original const&);
    double (*other)(Original const&);
};

constexpr WholeRow wholeRows[] = {
    {"G1", "all books deleted in a batch / raw", 1.3, batchDeletion, rawDeletionOfAll},
    {"G2", "all books deleted one by one, in one save / raw, too", 3, deletionOfObjects, rawDeletionOneByOne},
    {"G3", "the books of each author / raw join", 1.5, walkOverMembers, rawWalk},
    {"G4", "an optional attribute is new / opening and raw column", 1.5, openingWithOneMore, openingAndRawColumn},
    {"G5", "a list read through in batches of 100 / at once", 1.2, readInBatches, readAtOnce},
    {"G6", "everything deleted, no class has a say / raw", 3, deletionOfEverything, rawDeletionOfEverything},
};

} // namespace

void measureWholeTables(std::string const& folder, FunctionRef<bool(std::string const& id, std::string const& what)> wants,
                        FunctionRef<void(std::string const& row, double figure, double target)> add) {
    std::optional<Original> original;
    for (auto const& row : wholeRows) {
        if (!wants(row.id, row.what)) continue;
        if (!original) original.emplace(folder);
        row.ours(*original); // what the process needs at its first time
        auto const result = medians(5, [&] { return row.ours(*original); }, [&] { return row.other(*original); });
        add(fmt::format("{} {}", row.id, row.what), result.ours / result.theirs, row.target);
    }
}

} // namespace Tessarin::benchmarks
