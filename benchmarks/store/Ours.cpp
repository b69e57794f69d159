// Our side: the object graph as an application uses it, written through a worker, read in the main context.
#include "Tessarin/platform/foundation/JSON.h"
#include "benchmarks/store/Contender.h"
#include "benchmarks/store/OurModel.h"
#include "benchmarks/support/Report.h"

namespace Tessarin::benchmarks {
namespace {

void sumUp(ReadSum& sum, Book& book) {
    sum.add(book.get(Book::code));
    sum.add(book.get(Book::title));
    sum.add(book.get(Book::year));
    sum.add(book.get(Book::price));
    sum.add(book.get(Book::inPrint));
}

class Ours : public Contender {
public:
    std::string name() const override { return "ours"; }

    Reading insertAll(Workload const& work, std::string const& file) override {
        double seconds = 0;
        {
            Stack stack(file, Stack::Synchronous::Full);
            auto const worker = stack.makeWorker();
            seconds = secondsOf([&] {
                worker->performBlockAndWait(
                    [&] { LibraryInserter(*worker, work.library).insertBooks(0, work.library.books.size()); });
                stack.saveToDisk(*worker);
            });
        }
        return {seconds * 1000, checksumOfFile(file)};
    }

    Reading readAll(Workload const&, std::string const& file) override {
        Stack const stack(file, Stack::Synchronous::Normal);
        ReadSum sum;
        auto const seconds = secondsOf([&] {
            for (auto const& book : stack.main->allObjects<Book>()) sumUp(sum, *book);
        });
        return {seconds * 1000, sum.value};
    }

    Reading walkToAuthors(Workload const&, std::string const& file) override {
        Stack const stack(file, Stack::Synchronous::Normal);
        ReadSum sum;
        auto const seconds = secondsOf([&] {
            for (auto const& book : stack.main->allObjects<Book>()) sum.add(book->get(Book::author)->get(Author::name));
        });
        return {seconds * 1000, sum.value};
    }

    Reading importJSON(Workload const& work, std::string const& file) override {
        double seconds = 0;
        {
            Stack stack(file, Stack::Synchronous::Full);
            auto const worker = stack.makeWorker();
            seconds = secondsOf([&] {
                worker->performBlockAndWait([&] {
                    KnownAuthors const authors(*worker);
                    auto const books = JSON::parse(work.json);
                    for (auto const& book : books.list()) worker->insertObject<Book>()->importDictionary(book.dictionary());
                });
                stack.saveToDisk(*worker);
            });
        }
        return {seconds * 1000, checksumOfFile(file)};
    }

    Reading residentBooks(std::string const& file) override {
        Stack const stack(file, Stack::Synchronous::Normal);
        auto const before = residentMiB();
        auto const held = stack.main->allObjects<Book>();
        ReadSum sum;
        for (auto const& book : held) sumUp(sum, *book);
        return {residentMiB() - before, sum.value};
    }
};

} // namespace

std::unique_ptr<Contender> makeOurs() { return std::make_unique<Ours>(); }

} // namespace Tessarin::benchmarks
