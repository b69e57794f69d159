// W14: how long a save holds up the main queue, seen as a toolkit's event loop sees it.
#include "Tessarin/platform/queues/DispatchGroup.h"
#include "Tessarin/platform/queues/DispatchMain.h"
#include "benchmarks/store/OurRows.h"
#include "benchmarks/store/OurModel.h"
#include "benchmarks/store/RawBest.h"
#include "benchmarks/support/Report.h"

#include <algorithm>
#include <poll.h>

namespace Tessarin::benchmarks {
namespace {

constexpr std::size_t batches = 5;

/// Serves the main queue until `isDone`; the longest turn in ms.
double serveMainQueue(bool const& isDone) {
    double longest = 0;
    while (!isDone) {
        pollfd waiting{.fd = mainQueueDescriptor(), .events = POLLIN, .revents = 0};
        poll(&waiting, 1, -1);
        longest = std::max(longest, secondsOf([] { drainMainQueue(); }) * 1000);
    }
    return longest;
}

/// What a store's owner does after a worker's save: the main context saves on its queue, then the root on its own.
void saveUpwards(Stack const& stack, dispatch_group_t const& pending) {
    dispatch_group_enter(pending);
    stack.main->performBlock([main = stack.main, root = stack.root, pending] {
        saveOrThrow(*main);
        root->performBlock([root, pending] {
            saveOrThrow(*root);
            dispatch_group_leave(pending);
        });
    });
}

} // namespace

Reading longestMainQueueHold(Library const& library, std::string const& file) {
    double longest = 0;
    {
        Stack const stack(file, Synchronous::Full);
        auto const worker = stack.makeWorker();
        auto const pending = dispatch_group_create();
        std::unique_ptr<LibraryInserter> inserter;
        bool isDone = false;
        auto const share = library.books.size() / batches;
        for (std::size_t batch = 0; batch < batches; ++batch)
            worker->performBlock([&, batch] {
                if (!inserter) inserter = std::make_unique<LibraryInserter>(*worker, library, LibraryInserter::Start::Empty);
                inserter->insertBooks(std::span(library.books).subspan(batch * share, share));
                saveOrThrow(*worker);
                saveUpwards(stack, pending);
                if (batch + 1 < batches) return;
                inserter = nullptr;
                dispatch_group_notify(pending, dispatch_get_main_queue(), [&isDone] { isDone = true; });
            });
        longest = serveMainQueue(isDone);
    }
    return {longest, checksumOfFile(file)};
}

double rawSaveOf(Library const& library, std::size_t count, std::string const& file) {
    BestDatabase database(file, Synchronous::Full);
    sql::makeSchema(database);
    BestInserter inserter(database);
    auto const all = std::span(library.books);
    auto const save = [&](auto const& work) {
        database.begin();
        work();
        database.commit();
    };
    save([&] {
        inserter.insertAuthorsAndTags(library);
        inserter.insertBooks(all.first(all.size() - count));
    });
    return secondsOf([&] { save([&] { inserter.insertBooks(all.last(count)); }); }) * 1000;
}

} // namespace Tessarin::benchmarks
