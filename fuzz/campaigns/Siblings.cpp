#include "fuzz/campaigns/Siblings.h"

#include "fuzz/campaigns/Shelf.h"

#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <atomic>
#include <barrier>
#include <future>

namespace Tessarin::campaigns {
namespace {

constexpr int writerCount = 3;

Ref<NSManagedObject> theItem(NSManagedObjectContext& context) {
    auto const found = fetched(context, "Item");
    require(found.size() == 1, "{} records instead of one", found.size());
    return found.front();
}

/// One writer: a conflict is answered as an application does, by looking again.
class Writer {
public:
    Writer(Shelf const& shelf, bool keepsItsContext) : shelf_(shelf), worker_(newWorker()), keepsItsContext_(keepsItsContext) {}

    void raise() {
        while (!tryToRaise()) {
            ++conflicts;
            if (!keepsItsContext_) worker_ = newWorker();
        }
    }
    std::uint64_t conflicts = 0;

private:
    Ref<NSManagedObjectContext> newWorker() const {
        auto const worker = shelf_.worker();
        worker->setMergePolicy(make<NSMergePolicy>(NSMergePolicyType::Error));
        return worker;
    }

    bool tryToRaise() {
        bool isSaved = false;
        onQueueOf(*worker_, [&] {
            worker_->refreshAllObjects();
            auto const item = theItem(*worker_);
            item->setValueForKey(integerOf(*item, "value") + 1, "value");
            Ref<NSError> error;
            isSaved = worker_->save(error);
            if (isSaved) return;
            bool const isConflict = error->code() == static_cast<std::int64_t>(StoreErrorCode::MergeConflict);
            require(isConflict, "a raise failed: {}", error->localizedDescription());
            worker_->rollback();
        });
        return isSaved;
    }

    Shelf const& shelf_;
    Ref<NSManagedObjectContext> worker_;
    bool keepsItsContext_;
};

} // namespace

void trySiblings(Trial& trial, Tally& tally) {
    auto const file = trial.folder() + "/shelf.db";
    Shelf const shelf(file);
    onQueueOf(*shelf.root, [&] {
        shelf.root->insertNewObject("Item")->setValueForKey("one for all", "label");
        saveOrThrow(*shelf.root);
    });
    auto const raises = 10 + trial.random(20);
    std::barrier<> everyRound(writerCount); // each raise begins at once with the others'
    std::atomic<bool> isOver{false};
    std::vector<std::future<std::uint64_t>> writers;
    for (int at = 0; at < writerCount; ++at)
        writers.push_back(std::async(std::launch::async, [&, keepsItsContext = trial.chance(0.5)] {
            Writer writer(shelf, keepsItsContext);
            for (std::uint64_t done = 0; done < raises; ++done) {
                everyRound.arrive_and_wait();
                try {
                    writer.raise();
                } catch (...) {
                    everyRound.arrive_and_drop();
                    throw;
                }
            }
            everyRound.arrive_and_drop();
            return writer.conflicts;
        }));
    auto climbing = std::async(std::launch::async, [&, pauses = trial.random(3)] {
        for (std::uint64_t round = 0; !isOver; ++round)
            if (round % (pauses + 1) == 0) shelf.saveToDisk(*shelf.main);
    });
    std::exception_ptr failure;
    for (auto& writer : writers) try {
            tally.add("conflicts of siblings", writer.get());
        } catch (...) {
            failure = std::current_exception();
        }
    isOver = true;
    climbing.get();
    if (failure) std::rethrow_exception(failure);
    tally.add("raises by siblings", writerCount * raises);

    auto const expected = static_cast<std::int64_t>(writerCount * raises);
    auto const requireAll = [&](NSManagedObjectContext& context, char const* where) {
        onQueueOf(context, [&] {
            auto const value = integerOf(*theItem(context), "value");
            require(value == expected, "of {} raises {} {}", expected, value, where);
        });
    };
    requireAll(*shelf.main, "are in the parent");
    shelf.saveToDisk(*shelf.main);
    requireAll(*Shelf(file).root, "are on disk");
}

} // namespace Tessarin::campaigns
