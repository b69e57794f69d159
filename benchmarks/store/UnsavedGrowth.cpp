// What operations cost with the number of unsaved changes around them: n against 4 n, and dirty against clean.
#include "Tessarin/platform/objectgraph/live/LiveList.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "benchmarks/store/OurModel.h"
#include "benchmarks/store/OurRows.h"
#include "benchmarks/support/Report.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>

namespace Tessarin::benchmarks {
namespace {

constexpr double linear = 4.6, constant = 1.3;

Ref<NSManagedObjectContext> childOf(Ref<NSManagedObjectContext> const& parent) {
    auto child = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    child->setParentContext(parent);
    return child;
}

double secondsIn(NSManagedObjectContext& context, auto&& work) {
    double seconds = 0;
    context.performBlockAndWait([&] { seconds = secondsOf(work); });
    return seconds;
}

std::vector<Ref<Book>> insertBooks(NSManagedObjectContext& context, std::size_t count) {
    std::vector<Ref<Book>> books;
    for (std::size_t at = 0; at < count; ++at)
        books.emplace_back(context.insertObject<Book>())->set<std::string_view>(Book::code, fmt::format("B{}", at));
    return books;
}

void fill(Stack& stack, std::size_t books) {
    auto const worker = stack.makeWorker();
    worker->performBlockAndWait([&] { insertBooks(*worker, books); });
    stack.saveToDisk(*worker);
}

// Seconds for n of each.

double saves(Ref<NSManagedObjectContext> const& parent, std::size_t n) {
    auto const worker = childOf(parent);
    return secondsIn(*worker, [&] {
        for (std::size_t at = 0; at < n; ++at) {
            insertBooks(*worker, 1);
            saveOrThrow(*worker);
        }
    });
}

double childSaves(Stack& stack, std::size_t n) { return saves(stack.root, n); }
double savesUnderBusyMain(Stack& stack, std::size_t n) { return saves(stack.main, n); } // this thread, main, serves nothing

double deletions(Stack& stack, std::size_t n) {
    auto const worker = stack.makeWorker();
    return secondsIn(*worker, [&] {
        for (auto const& book : insertBooks(*worker, n)) worker->deleteObject(*book);
    });
}

double refreshes(Stack& stack, std::size_t n) {
    fill(stack, n);
    auto const worker = stack.makeWorker();
    return secondsIn(*worker, [&] {
        auto const books = worker->allObjects<Book>();
        for (auto const& book : books) book->set<std::int64_t>(Book::year, 7);
        for (auto const& book : books) worker->refreshObject(*book, false);
    });
}

double findsOrCreations(Stack& stack, std::size_t n) {
    auto const worker = stack.makeWorker();
    return secondsIn(*worker, [&] {
        for (std::size_t at = 0; at < n; ++at) {
            auto const code = fmt::format("B{}", at * 7919 % n);
            auto book = worker->anyObject<Book>({.predicate = NSPredicate::predicateWithFormat("code == %@", code)});
            if (!book) worker->insertObject<Book>()->set<std::string_view>(Book::code, code);
        }
    });
}

double blocksWithChild(Stack& stack, std::size_t n) {
    auto const worker = stack.makeWorker(), child = childOf(worker);
    return secondsOf([&] {
        for (std::size_t at = 0; at < n; ++at) worker->performBlockAndWait([&] { insertBooks(*worker, 1); });
    });
}

double setsOfObjects(Stack& stack, std::size_t n) {
    auto const worker = stack.makeWorker();
    return secondsIn(*worker, [&] {
        auto const first = insertBooks(*worker, n), second = insertBooks(*worker, n);
        auto members = worker->insertObject<Author>()->mutableSetValueForKey("books");
        members.setObjects({first.begin(), first.end()});
        members.setObjects({second.begin(), second.end()});
    });
}

// Seconds for one among n.

double newWorker(Stack& stack, std::size_t n) {
    fill(stack, n);
    return median(11, [&] { // of many: one takes but microseconds
        return secondsOf([&] {
            for (int at = 0; at < 1000; ++at) {
                auto const worker = stack.makeWorker();
                worker->performBlockAndWait([&] { insertBooks(*worker, 1); });
            }
        });
    });
}

double mergeOfOne(Stack& stack, std::size_t n) {
    fill(stack, n);
    auto const worker = stack.makeWorker();
    double seconds = 0;
    worker->performBlockAndWait([&] {
        auto const books = worker->allObjects<Book>();
        ObjectIDsByChange const changes{{NSUpdatedObjectsKey, {books.front()->objectID()}}};
        seconds = median(101, [&] {
            return secondsOf([&] { NSManagedObjectContext::mergeChangesFromRemoteContextSave(changes, std::vector{worker}); });
        });
    });
    return seconds;
}

double saveAboveAChild(Stack& stack, std::size_t n) {
    fill(stack, n);
    auto const parent = stack.makeWorker(), child = childOf(parent);
    std::vector<Ref<Book>> books;
    parent->performBlockAndWait([&] { books = parent->allObjects<Book>(); });
    return median(101, [&] {
        parent->performBlockAndWait([&] { insertBooks(*parent, 1); });
        return secondsIn(*parent, [&] { saveOrThrow(*parent); });
    });
}

double membersByAndBy(Stack& stack, std::size_t n) {
    auto const worker = stack.makeWorker();
    return secondsIn(*worker, [&] {
        auto books = worker->insertObject<Author>()->mutableSetValueForKey("books");
        for (std::size_t at = 0; at < n; ++at) {
            books.addObject(insertBooks(*worker, 1).front());
            saveOrThrow(*worker);
        }
    });
}

double turnAmongLists(Stack& stack, std::size_t n) {
    auto const worker = stack.makeWorker();
    std::vector<Ref<LiveList>> lists;
    Ref<Book> book;
    worker->performBlockAndWait([&] {
        for (std::size_t at = 0; at < n; ++at) lists.push_back(make<LiveList>(worker, make<NSFetchRequest>("Tag")));
        book = insertBooks(*worker, 1).front();
    });
    auto const seconds = median(101, [&] {
        return secondsOf([&] { worker->performBlockAndWait([&] { book->set<std::string_view>(Book::title, "Emma"); }); });
    });
    worker->performBlockAndWait([&] { lists.clear(); });
    return seconds;
}

struct GrowthRow {
    char const* id;
    char const* what;
    double target;
    std::size_t n;
    double (*seconds)(Stack& stack, std::size_t n);
};

constexpr GrowthRow growthRows[] = {
    {"U1", "n saves of a child, the parent saves none", linear, 1000, childSaves},
    {"U2", "n saves of a worker, the main queue is busy", linear, 1000, savesUnderBusyMain},
    {"U3", "n unsaved objects are deleted", linear, 4000, deletions},
    {"U4", "n changed objects are refreshed", linear, 4000, refreshes},
    {"U5", "n found or created", linear, 2000, findsOrCreations},
    {"U6", "n blocks of a context with a child", linear, 1000, blocksWithChild},
    {"U7", "setObjects of n, twice", linear, 4000, setsOfObjects},
    {"U8", "a new worker after n records became permanent", constant, 20'000, newWorker},
    {"U16", "one record changed elsewhere, n registered", constant, 10'000, mergeOfOne},
    {"U17", "an insertion is saved above a child, n registered", constant, 10'000, saveAboveAChild},
    {"U18", "n saves, each adds a member to a list that was read", linear, 2000, membersByAndBy},
    {"U19", "a change, n live lists of another entity", constant, 1000, turnAmongLists},
};

/// U9: one save in the store without a file that holds n records.
double saveInMemory(std::size_t n) {
    auto const coordinator = make<NSPersistentStoreCoordinator>(
        ModelBuilder().entity("Note").attribute("text", NSAttributeType::String).toMany("links", "Note", {}).build());
    Ref<NSError> error;
    if (!coordinator->addPersistentStoreWithType(NSInMemoryStoreType, {}, NSURL::fileURLWithPath("/growth"), {}, error))
        throw ErrorException(error);
    auto const context = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    context->setPersistentStoreCoordinator(coordinator);
    double seconds = 0;
    context->performBlockAndWait([&] {
        for (std::size_t at = 0; at < n; ++at) context->insertNewObject("Note")->setValueForKey(std::to_string(at), "text");
        saveOrThrow(*context);
        seconds = median(101, [&] {
            context->insertNewObject("Note")->setValueForKey("one", "text");
            return secondsOf([&] { saveOrThrow(*context); });
        });
    });
    return seconds;
}

/// A context over an empty store in memory.
Ref<NSManagedObjectContext> inMemory(Ref<NSManagedObjectModel> model, Ref<NSMergePolicy> policy) {
    auto const coordinator = make<NSPersistentStoreCoordinator>(std::move(model));
    Ref<NSError> error;
    if (!coordinator->addPersistentStoreWithType(NSInMemoryStoreType, {}, NSURL::fileURLWithPath("/taken"), {}, error))
        throw ErrorException(error);
    auto context = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    context->setPersistentStoreCoordinator(coordinator);
    context->setMergePolicy(std::move(policy));
    return context;
}

/// U14: one save of n new records with a unique value that one in the store has.
double takenValues(std::size_t n) {
    auto const context = inMemory(ModelBuilder().entity("Tag").attribute("name", NSAttributeType::String).unique({"name"}).build(),
                                  NSMergeByPropertyStoreTrumpMergePolicy());
    double seconds = 0;
    context->performBlockAndWait([&] {
        for (std::size_t const count : {std::size_t{1}, n}) {
            for (std::size_t at = 0; at < count; ++at) context->insertNewObject("Tag")->setValueForKey("taken", "name");
            seconds = secondsOf([&] { saveOrThrow(*context); });
        }
    });
    return seconds;
}

/// U15: one save of n new records, each of which has a unique value of the one before, by turns.
double valuesInARow(std::size_t n) {
    auto const model = ModelBuilder()
                           .entity("Badge")
                           .attribute("number", NSAttributeType::String)
                           .attribute("code", NSAttributeType::String)
                           .unique({"number"})
                           .unique({"code"})
                           .build();
    auto const context = inMemory(model, NSMergeByPropertyObjectTrumpMergePolicy());
    double seconds = 0;
    context->performBlockAndWait([&] {
        for (std::size_t at = 0; at < n; ++at) {
            auto const badge = context->insertNewObject("Badge");
            badge->setValueForKey(std::to_string(at / 2), "number");
            badge->setValueForKey(std::to_string((at + 1) / 2), "code");
        }
        seconds = secondsOf([&] { saveOrThrow(*context); });
    });
    return seconds;
}

struct DirtyRow {
    char const* id;
    char const* what;
    double target;
    char const* predicate; // null: none
    char const* sortedBy;  // null: counted; "": fetched
    char const* unsaved;   // of what entity there is one object
};

constexpr DirtyRow dirtyRows[] = {
    {"U10", "fetch by key path, one unrelated object is unsaved", 2, "author.name == 'author'", "", "Tag"},
    {"U11", "count by key path, the same", 2, "author.name == 'author'", nullptr, "Tag"},
    {"U12", "20 sorted by author.name, the same", 1.5, nullptr, "author.name", "Tag"},
    {"U13", "count of all, one of them is unsaved", 2, nullptr, nullptr, "Book"},
};

double secondsOfRequest(NSManagedObjectContext& context, DirtyRow const& row) {
    auto const request = make<NSFetchRequest>("Book");
    if (row.predicate) request->setPredicate(NSPredicate::predicateWithFormat(row.predicate));
    if (row.sortedBy && *row.sortedBy) {
        request->setSortDescriptors({NSSortDescriptor::sortDescriptorWithKey(row.sortedBy)});
        request->setFetchLimit(20);
    }
    Ref<NSError> error;
    return median(31, [&] {
        return secondsOf([&] {
            if (row.sortedBy) context.executeFetchRequest(*request, error);
            else context.countForFetchRequest(*request, error);
        });
    });
}

double slowdownByUnsaved(Stack& stack, DirtyRow const& row) {
    auto const clean = stack.makeWorker(), dirty = stack.makeWorker();
    double seconds = 0, slowed = 0;
    clean->performBlockAndWait([&] { seconds = secondsOfRequest(*clean, row); });
    dirty->performBlockAndWait([&] {
        dirty->insertNewObject(row.unsaved);
        slowed = secondsOfRequest(*dirty, row);
    });
    return slowed / seconds;
}

} // namespace

void measureUnsavedGrowth(std::string const& folder, Wants wants, AddRatio add) {
    int files = 0;
    auto const newFile = [&] { return (std::filesystem::path(folder) / fmt::format("unsaved{}.db", ++files)).string(); };
    auto const ratio = [&](char const* id, char const* what, double target, FunctionRef<double(std::size_t)> seconds,
                           std::size_t n) {
        if (!wants(id, what)) return;
        seconds(4 * n); // what the process needs at its first time
        auto const one = median(9, [&] { return seconds(n); }), four = median(9, [&] { return seconds(4 * n); });
        add(fmt::format("{} {}: 4 n / n", id, what), four / one, target);
    };
    for (auto const& row : growthRows)
        ratio(
            row.id, row.what, row.target,
            [&](std::size_t n) {
                Stack stack(newFile(), Synchronous::Normal);
                return row.seconds(stack, n);
            },
            row.n);
    ratio("U9", "a save of one in memory among n", constant, saveInMemory, 250);
    ratio("U14", "n new records with a taken unique value", linear, takenValues, 2000);
    ratio("U15", "n new records in a row of unique values", linear, valuesInARow, 2000);

    auto const wanted = [&](DirtyRow const& row) { return wants(row.id, row.what); };
    if (std::ranges::none_of(dirtyRows, wanted)) return;
    Stack stack(newFile(), Synchronous::Normal);
    auto const worker = stack.makeWorker();
    auto const library = Library::generate(200'000);
    worker->performBlockAndWait(
        [&] { LibraryInserter(*worker, library, LibraryInserter::Start::Empty).insertBooks(library.books); });
    stack.saveToDisk(*worker);
    for (auto const& row : dirtyRows)
        if (wanted(row)) add(fmt::format("{} {}: dirty / clean", row.id, row.what), slowdownByUnsaved(stack, row), row.target);
}

} // namespace Tessarin::benchmarks
