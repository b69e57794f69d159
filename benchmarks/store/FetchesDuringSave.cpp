// W15: whether a worker's fetches go on at their pace while another worker's changes are written.
#include "benchmarks/store/OurModel.h"
#include "benchmarks/store/OurRows.h"
#include "benchmarks/support/Report.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace Tessarin::benchmarks {
namespace {

using namespace std::chrono_literals;

/// Records that are saved already, by an indexed text.
struct Known {
    char const* entity;
    char const* condition;
    std::vector<std::string> texts;
};

Known known(Workload const& work, FetchedEntity entity) {
    Known known;
    if (entity == FetchedEntity::Author) {
        known = {"Author", "name == $TEXT", {}};
        for (auto const& author : work.library.authors) known.texts.push_back(author.name);
    } else {
        known = {"Book", "code == $TEXT", {}};
        for (auto const& book : work.more) known.texts.push_back(book.code);
    }
    return known;
}

/// Looks up one record after the other until `isDone`; look-ups per second. In the worker's queue.
double lookUpRate(NSManagedObjectContext& worker, Known const& known, std::atomic<bool> const& isDone) {
    auto const condition = NSPredicate::predicateWithFormat(known.condition);
    auto const request = make<NSFetchRequest>(known.entity);
    std::size_t count = 0;
    auto const seconds = secondsOf([&] {
        for (; !isDone; ++count) {
            auto const& text = known.texts[count * 7919 % known.texts.size()];
            request->setPredicate(condition->predicateWithSubstitutionVariables({{"TEXT", text}}));
            Ref<NSError> error;
            if (worker.executeFetchRequest(*request, error).size() != 1) throw std::runtime_error("a record is not found");
        }
    });
    return static_cast<double>(count) / seconds;
}

/// The rate on a thread of its own while `work` runs on this one, the main thread.
double lookUpRateBeside(Stack const& stack, Known const& known, auto const& work) {
    auto const worker = stack.makeWorker();
    std::atomic<bool> isDone = false;
    double rate = 0;
    std::thread reader([&] { worker->performBlockAndWait([&] { rate = lookUpRate(*worker, known, isDone); }); });
    work();
    isDone = true;
    reader.join();
    return rate;
}

void keepBusyFor(std::chrono::milliseconds time) {
    auto const end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) continue;
}

} // namespace

Reading slowdownOfFetches(Workload const& work, FetchedEntity entity, std::string const& file) {
    auto const sought = known(work, entity);
    double slowdown = 0;
    {
        Stack stack(file, Synchronous::Full);
        auto const worker = stack.makeWorker();
        std::optional<LibraryInserter> inserter;
        worker->performBlockAndWait([&] {
            inserter.emplace(*worker, work.library, LibraryInserter::Start::Empty);
            inserter->insertBooks(work.more);
        });
        stack.saveToDisk(*worker);

        worker->performBlockAndWait([&] { inserter->insertBooks(work.library.books); });
        auto const alone = lookUpRateBeside(stack, sought, [] { keepBusyFor(300ms); });
        auto const beside = lookUpRateBeside(stack, sought, [&] { stack.saveToDisk(*worker); });
        slowdown = alone / beside;
    }
    return {slowdown, checksumOfFile(file)};
}

} // namespace Tessarin::benchmarks
