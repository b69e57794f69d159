// W15: whether a worker's fetches go on at their pace while another worker's changes are written.
#include "benchmarks/store/OurModel.h"
#include "benchmarks/store/OurRows.h"
#include "benchmarks/support/Report.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
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

double threadSeconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

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

/// Of one look-up, in seconds; the processor's are the thread's own.
Cost costOfLookUp(NSManagedObjectContext& worker, Known const& known, std::atomic<bool> const& isDone) {
    auto const condition = NSPredicate::predicateWithFormat(known.condition);
    auto const request = make<NSFetchRequest>(known.entity);
    std::size_t count = 0;
    auto const before = threadSeconds();
    auto const seconds = secondsOf([&] {
        for (; !isDone; ++count) {
            auto const& text = known.texts[count * 7919 % known.texts.size()];
            request->setPredicate(condition->predicateWithSubstitutionVariables({{"TEXT", text}}));
            Ref<NSError> error;
            if (worker.executeFetchRequest(*request, error).size() != 1) throw std::runtime_error("a record is not found");
        }
    });
    auto const each = static_cast<double>(std::max<std::size_t>(count, 1));
    return {seconds / each, (threadSeconds() - before) / each};
}

/// On a thread of its own while `work` runs on this one, the main thread.
Cost costOfLookUpBeside(Stack const& stack, Known const& known, auto const& work) {
    auto const worker = stack.makeWorker();
    std::atomic<bool> isDone = false;
    Cost cost;
    std::thread reader([&] { worker->performBlockAndWait([&] { cost = costOfLookUp(*worker, known, isDone); }); });
    work();
    isDone = true;
    reader.join();
    return cost;
}

void keepBusyFor(std::chrono::milliseconds time) {
    auto const end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) continue;
}

} // namespace

Reading slowdownOfFetches(Workload const& work, FetchedEntity entity, std::string const& file) {
    auto const sought = known(work, entity);
    Cost slowdown;
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
        auto const alone = costOfLookUpBeside(stack, sought, [] { keepBusyFor(300ms); });
        auto const beside = costOfLookUpBeside(stack, sought, [&] { stack.saveToDisk(*worker); });
        slowdown = {beside.wall / alone.wall, beside.processor / alone.processor};
    }
    return {slowdown.processor, checksumOfFile(file), slowdown.wall};
}

} // namespace Tessarin::benchmarks
