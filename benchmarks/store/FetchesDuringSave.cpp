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

/// Looks up one book after the other by its code until `isDone`; look-ups per second. In the worker's queue.
double lookUpRate(NSManagedObjectContext& worker, std::span<Library::Book const> books, std::atomic<bool> const& isDone) {
    auto const condition = NSPredicate::predicateWithFormat("code == $CODE");
    auto const request = make<NSFetchRequest>("Book");
    std::size_t count = 0;
    auto const seconds = secondsOf([&] {
        for (; !isDone; ++count) {
            auto const& code = books[count * 7919 % books.size()].code;
            request->setPredicate(condition->predicateWithSubstitutionVariables({{"CODE", code}}));
            Ref<NSError> error;
            if (worker.executeFetchRequest(*request, error).size() != 1) throw std::runtime_error("a book is not found");
        }
    });
    return static_cast<double>(count) / seconds;
}

/// The rate on a thread of its own while `work` runs on this one, the main thread.
double lookUpRateBeside(Stack const& stack, std::span<Library::Book const> books, auto const& work) {
    auto const worker = stack.makeWorker();
    std::atomic<bool> isDone = false;
    double rate = 0;
    std::thread reader([&] { worker->performBlockAndWait([&] { rate = lookUpRate(*worker, books, isDone); }); });
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

Reading slowdownOfFetches(Workload const& work, std::string const& file) {
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
        auto const alone = lookUpRateBeside(stack, work.more, [] { keepBusyFor(300ms); });
        auto const beside = lookUpRateBeside(stack, work.more, [&] { stack.saveToDisk(*worker); });
        slowdown = alone / beside;
    }
    return {slowdown, checksumOfFile(file)};
}

} // namespace Tessarin::benchmarks
