// Our side: the object graph as an application uses it, written through a worker, read in the main context.
#include "Tessarin/platform/foundation/json/JSON.h"
#include "benchmarks/store/OurModel.h"
#include "benchmarks/store/Timing.h"

namespace Tessarin::benchmarks {
namespace {

std::uint64_t sumOfAllBooks(std::vector<Ref<Book>> const& books) {
    ReadSum sum;
    for (auto const& book : books) {
        sum.add(book->get(Book::code));
        sum.add(book->get(Book::title));
        sum.add(book->get(Book::year));
        sum.add(book->get(Book::price));
        sum.add(book->get(Book::inPrint));
    }
    return sum.value;
}

std::vector<Ref<NSManagedObject>> fetch(NSManagedObjectContext& context, NSFetchRequest const& request) {
    Ref<NSError> error;
    auto found = context.executeFetchRequest(request, error);
    if (error) throw ErrorException(error);
    return found;
}

std::int64_t count(NSManagedObjectContext& context, NSFetchRequest const& request) {
    Ref<NSError> error;
    auto const number = context.countForFetchRequest(request, error);
    if (error) throw ErrorException(error);
    return number;
}

/// One look-up after the other with one request.
class ByCode {
public:
    explicit ByCode(NSManagedObjectContext& context) : context_(context) { request_->setFetchLimit(1); }
    Ref<Book> find(std::string const& code) {
        request_->setPredicate(condition_->predicateWithSubstitutionVariables({{"CODE", code}}));
        return std::static_pointer_cast<Book>(fetch(context_, *request_).front());
    }

private:
    NSManagedObjectContext& context_;
    Ref<NSPredicate> condition_ = NSPredicate::predicateWithFormat("code == $CODE");
    Ref<NSFetchRequest> request_ = make<NSFetchRequest>("Book");
};

std::vector<Ref<Book>> booksBefore(NSManagedObjectContext& context, int year) {
    return context.allObjects<Book>({.predicate = NSPredicate::predicateWithFormat("year < %d", year)});
}

/// `work` in a worker's queue, and the saves up to the disk.
Reading written(Workload const& workload, std::string const& file, auto const& work, Stack::History history = {}) {
    Cost cost;
    {
        Stack stack(file, workload.synchronous, history);
        auto const worker = stack.makeWorker();
        cost = costOf([&] {
            worker->performBlockAndWait([&] { work(*worker); });
            stack.saveToDisk(*worker);
        });
    }
    return readingOf(cost, checksumOfFile(file));
}

void saveOnePrice(Stack& stack, std::string const& code) {
    auto const worker = stack.makeWorker();
    worker->performBlockAndWait([&] {
        auto const book = ByCode(*worker).find(code);
        book->set(Book::price, book->get(Book::price) + 1);
    });
    stack.saveToDisk(*worker);
}

/// A request in the root's queue, which is on the disk when it returns.
Reading inBatch(Workload const& workload, std::string const& file, auto const& request) {
    Cost cost;
    {
        Stack stack(file, workload.synchronous);
        Ref<NSError> error;
        cost = costOf([&] { stack.root->performBlockAndWait([&] { stack.root->executeRequest(request, error); }); });
        if (error) throw ErrorException(error);
    }
    return readingOf(cost, checksumOfFile(file));
}

class Ours : public Contender {
public:
    Ours() : Contender("ours") {}

    Reading insertAll(Workload const& work, std::string const& file) override { return insertAll(work, file, {}); }
    std::optional<Reading> insertAllKept(Workload const& work, std::string const& file) override {
        return insertAll(work, file, Stack::History::Kept);
    }
    static Reading insertAll(Workload const& work, std::string const& file, Stack::History history) {
        return written(
            work, file,
            [&](NSManagedObjectContext& worker) {
                LibraryInserter(worker, work.library, LibraryInserter::Start::Empty).insertBooks(work.library.books);
            },
            history);
    }

    Reading insertMore(Workload const& work, std::string const& file, std::size_t count, std::size_t share) override {
        return insertMore(work, file, count, share, {});
    }
    std::optional<Reading> insertMoreKept(Workload const& work, std::string const& file, std::size_t count,
                                          std::size_t share) override {
        return insertMore(work, file, count, share, Stack::History::Merged);
    }
    static Reading insertMore(Workload const& work, std::string const& file, std::size_t count, std::size_t share,
                              Stack::History history) {
        Cost cost;
        {
            Stack stack(file, work.synchronous, history);
            auto const worker = stack.makeWorker();
            cost = costOf([&] {
                std::optional<LibraryInserter> inserter;
                worker->performBlockAndWait([&] { inserter.emplace(*worker, work.library, LibraryInserter::Start::Filled); });
                for (std::size_t at = 0; at < count; at += share) {
                    worker->performBlockAndWait([&] { inserter->insertBooks(std::span(work.more).subspan(at, share)); });
                    stack.saveToDisk(*worker);
                }
            });
        }
        return readingOf(cost, checksumOfFile(file));
    }

    Reading readAll(Workload const& work, std::string const& file, Pass timed) override {
        Stack stack(file, Synchronous::Normal);
        auto const pass = [&] { return sumOfAllBooks(stack.main->allObjects<Book>()); };
        if (timed != Pass::First) pass();
        if (timed == Pass::AfterSave) saveOnePrice(stack, work.library.books.front().code);
        return timedInMs(pass);
    }

    Reading findByCode(Workload const& work, std::string const& file) override {
        Stack const stack(file, Synchronous::Normal);
        return timedInMs([&, codes = codesToFind(work.library)] {
            ReadSum sum;
            ByCode books(*stack.main);
            for (auto const& code : codes) {
                auto const book = books.find(code);
                sum.add(book->get(Book::title));
                sum.add(book->get(Book::price));
            }
            return sum.value;
        });
    }

    Reading findAndSort(Workload const&, std::string const& file) override {
        Stack const stack(file, Synchronous::Normal);
        return meanInMs([&, request = Ref<NSFetchRequest>()]() mutable {
            if (!request) {
                request = make<NSFetchRequest>("Book");
                request->setPredicate(NSPredicate::predicateWithFormat("price > %f AND title CONTAINS %@", 50.0, "foo"));
                request->setSortDescriptors({NSSortDescriptor::sortDescriptorWithKey("year", {.ascending = false}),
                                             NSSortDescriptor::sortDescriptorWithKey("code")});
                request->setFetchLimit(100);
            }
            ReadSum sum;
            for (auto const& book : fetch(*stack.main, *request)) sum.add(static_cast<Book&>(*book).get(Book::code));
            return sum.value;
        });
    }

    Reading walkToAuthors(Workload const&, std::string const& file) override {
        Stack const stack(file, Synchronous::Normal);
        return timedInMs([&] {
            ReadSum sum;
            for (auto const& book : stack.main->allObjects<Book>()) sum.add(book->get(Book::author)->get(Author::name));
            return sum.value;
        });
    }

    Reading changeBooks(Workload const& work, std::string const& file) override {
        return written(work, file, [](NSManagedObjectContext& worker) {
            for (auto const& book : booksBefore(worker, changedBefore)) {
                book->set<std::string_view>(Book::title, changedTitle);
                book->set(Book::price, changedPrice(book->get(Book::price)));
                book->set(Book::inPrint, !book->get(Book::inPrint));
            }
        });
    }

    Reading deleteBooks(Workload const& work, std::string const& file) override {
        return written(work, file, [](NSManagedObjectContext& worker) {
            for (auto const& book : booksBefore(worker, changedBefore)) worker.deleteObject(*book);
        });
    }

    std::optional<Reading> updateInBatch(Workload const& work, std::string const& file) override {
        auto const request = make<NSBatchUpdateRequest>("Book");
        request->setPredicate(NSPredicate::predicateWithFormat("year < %d", batchedBefore));
        request->setPropertiesToUpdate({{"price", batchedPrice}, {"inPrint", false}});
        return inBatch(work, file, *request);
    }

    std::optional<Reading> deleteInBatch(Workload const& work, std::string const& file) override {
        auto const old = make<NSFetchRequest>("Book");
        old->setPredicate(NSPredicate::predicateWithFormat("year < %d", batchedBefore));
        return inBatch(work, file, *make<NSBatchDeleteRequest>(old));
    }

    Reading countBooks(Workload const&, std::string const& file) override {
        Stack const stack(file, Synchronous::Normal);
        auto const all = make<NSFetchRequest>("Book"), dear = make<NSFetchRequest>("Book");
        dear->setPredicate(NSPredicate::predicateWithFormat("price > %f", 50.0));
        return meanInMs(
            [&] { return static_cast<std::uint64_t>(count(*stack.main, *all) + count(*stack.main, *dear) * 1'000'000); });
    }

    Reading importJSON(Workload const& work, std::string const& file) override {
        return written(work, file, [&](NSManagedObjectContext& worker) {
            KnownAuthors const authors(worker);
            JSON::forEachElement(work.json,
                                 [&](Value book) { worker.insertObject<Book>()->importDictionary(book.dictionary()); });
        });
    }

    Reading openAndFind(std::string const& code, std::string const& file) override {
        std::optional<Stack> stack; // closed outside the time
        return timedInMs([&] {
            stack.emplace(file, Synchronous::Normal);
            ReadSum sum;
            sum.add(ByCode(*stack->main).find(code)->get(Book::author)->get(Author::name));
            return sum.value;
        });
    }

    Reading residentBooks(std::string const& file) override {
        Stack const stack(file, Synchronous::Normal);
        auto const before = residentBytes();
        auto const held = stack.main->allObjects<Book>();
        auto const sum = sumOfAllBooks(held);
        return {(residentBytes() - before) / static_cast<double>(held.size()), sum};
    }
};

} // namespace

std::unique_ptr<Contender> makeOurs() { return std::make_unique<Ours>(); }

} // namespace Tessarin::benchmarks
