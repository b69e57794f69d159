// What is done to all records of a table, beside what SQLite does on the same file: as ratios of processor time.
#include "Tessarin/platform/objectgraph/context/WholeDeletionPrivate.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "benchmarks/store/OurModel.h"
#include "benchmarks/store/OurRows.h"
#include "benchmarks/store/RawBest.h"
#include "benchmarks/support/Report.h"

#include <filesystem>
#include <fmt/format.h>

namespace Tessarin::benchmarks {
namespace {

/// A file with all books, and fresh copies of it.
class Original {
public:
    Original(std::string const& folder, std::size_t books)
        : file_(std::filesystem::path(folder) / "whole.db"), copy_(std::filesystem::path(folder) / "copy.db") {
        for (char const* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(file_ + suffix);
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

Cost costInRoot(Stack const& stack, FunctionRef<void(NSManagedObjectContext&)> work) {
    Cost cost;
    stack.root->performBlockAndWait([&] { cost = costOf([&] { work(*stack.root); }); });
    return cost;
}

Cost costRaw(std::string const& file, char const* sql, Synchronous synchronous = Synchronous::Normal) {
    BestDatabase database(file, synchronous);
    return costOf([&] { database.execute(sql); });
}

constexpr char const* rawDeletion = "BEGIN; DELETE FROM Book; DELETE FROM Book_tags; COMMIT";

Cost batchDeletion(Original const& original) {
    Stack const stack(original.copy(), Synchronous::Normal);
    return costInRoot(stack, [](auto& context) {
        Ref<NSError> error;
        context.executeRequest(*make<NSBatchDeleteRequest>(make<NSFetchRequest>("Book")), error);
        if (error) throw ErrorException(error);
    });
}

Cost deletionOfObjects(Original const& original) {
    Stack const stack(original.copy(), Synchronous::Normal);
    return costInRoot(stack, [](auto& context) {
        for (auto const& book : context.template allObjects<Book>()) context.deleteObject(*book);
        saveOrThrow(context);
    });
}

Cost deletionOfEverything(Original const& original) {
    Stack const stack(original.copy(), Synchronous::Normal);
    return costInRoot(stack, [](auto& context) {
        Ref<NSError> error;
        if (!deletesEverything(context, error)) throw std::runtime_error("objects were made");
        if (error) throw ErrorException(error);
    });
}

Cost rawDeletionOfEverything(Original const& original) {
    return costRaw(original.copy(),
                   "BEGIN; DELETE FROM Author; DELETE FROM Tag; DELETE FROM Book; DELETE FROM Book_tags; COMMIT");
}

/// As a program does that has something to say about each.
Cost rawDeletionOneByOne(Original const& original) {
    BestDatabase database(original.copy(), Synchronous::Normal);
    return costOf([&] {
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

Cost rawDeletionOfAll(Original const& original) { return costRaw(original.copy(), rawDeletion); }

Cost walkOverMembers(Original const& original) {
    Stack const stack(original.file(), Synchronous::Normal);
    double prices = 0;
    auto const cost = costInRoot(stack, [&](auto& context) {
        for (auto const& author : context.template allObjects<Author>())
            for (auto const& book : author->mutableSetValueForKey("books").allObjects())
                prices += static_cast<Book&>(*book).get(Book::price);
    });
    keep(prices);
    return cost;
}

Cost rawWalk(Original const& original) {
    BestDatabase database(original.file(), Synchronous::Normal);
    double prices = 0;
    auto const cost = costOf([&] {
        auto query = database.prepare("SELECT a.id, b.* FROM Author a JOIN Book b ON b.author = a.id ORDER BY a.id");
        auto const price = 6;
        while (query.step()) prices += query.real(price);
    });
    keep(prices);
    return cost;
}

/// Opening with one more optional attribute of books, or with none.
Cost openings(std::string const& file, bool adds) {
    auto definition = Stack::model()->definition();
    if (adds)
        for (auto& entity : definition.entities)
            if (entity.name == "Book") entity.attributes.push_back({"note", NSAttributeType::String, {}});
    auto const coordinator = make<NSPersistentStoreCoordinator>(NSManagedObjectModel::modelWithDefinition(std::move(definition)));
    Ref<NSError> error;
    return costOf([&] {
        if (!coordinator->addPersistentStoreWithType(
                NSSQLiteStoreType, {}, NSURL::fileURLWithPath(file),
                {{NSMigratePersistentStoresAutomaticallyOption, true}, {NSInferMappingModelAutomaticallyOption, true}}, error))
            throw ErrorException(error);
    });
}

Cost openingWithOneMore(Original const& original) { return openings(original.copy(), true); }
Cost openingAndRawColumn(Original const& original) {
    auto const& file = original.copy();
    // As durable as a migration is.
    auto const opening = openings(file, false);
    auto const column = costRaw(file, "ALTER TABLE Book ADD COLUMN note TEXT", Synchronous::Full);
    return {opening.wall + column.wall, opening.processor + column.processor};
}

Cost readThrough(Original const& original, std::size_t batchSize) {
    Stack const stack(original.file(), Synchronous::Normal);
    double prices = 0;
    auto const cost = costInRoot(stack, [&](auto& context) {
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
    return cost;
}
Cost readInBatches(Original const& original) { return readThrough(original, 100); }
Cost readAtOnce(Original const& original) { return readThrough(original, 0); }

struct WholeRow {
    char const* id;
    char const* what;
    char const* peer;
    double target;
    Cost (*ours)(Original const&);
    Cost (*other)(Original const&);
    bool isScaled = false; // also with 1,000,000 books
};

constexpr WholeRow wholeRows[] = {
    {"G1", "all books deleted in a batch", "rawbest", 1.3, batchDeletion, rawDeletionOfAll, true},
    {"G2", "all books deleted one by one, one save", "rawbest", 3, deletionOfObjects, rawDeletionOneByOne},
    {"G3", "the books of each author", "rawbest, JOIN", 1.5, walkOverMembers, rawWalk},
    {"G4", "an optional attribute is new", "opening, ALTER", 1.5, openingWithOneMore, openingAndRawColumn, true},
    {"G5", "a list read through by hundreds", "read at once", 1.2, readInBatches, readAtOnce, true},
    {"G6", "everything deleted, no class has a say", "rawbest", 3, deletionOfEverything, rawDeletionOfEverything, true},
};

void measureTables(std::string const& folder, std::size_t books, Wants wants, AddCosts add) {
    bool const isLarge = books > 100'000;
    std::optional<Original> original;
    for (auto const& row : wholeRows) {
        auto const what = fmt::format("{}{}", row.what, isLarge ? ", 1,000,000" : "");
        if (!wants(row.id, what) || (isLarge && !row.isScaled)) continue;
        if (!original) original.emplace(folder, books);
        row.ours(*original); // what the process needs at its first time
        auto const costs = medianCosts(
            isLarge ? 3 : 5, [&] { return row.ours(*original); }, [&] { return row.other(*original); });
        add({fmt::format("{} {}", row.id, what), row.peer, row.target}, costs);
    }
}

} // namespace

void measureWholeTables(std::string const& folder, bool isScaled, Wants wants, AddCosts add) {
    measureTables(folder, 100'000, wants, add);
    if (isScaled) measureTables(folder, 1'000'000, wants, add);
}

} // namespace Tessarin::benchmarks
