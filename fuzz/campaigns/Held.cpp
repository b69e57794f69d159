// Objects that are held for long, and so are as old as they were read, are edited at every level. Once all is saved, the file and
// every context must show the same.
#include "fuzz/campaigns/Held.h"

#include "fuzz/campaigns/Shelf.h"

#include <algorithm>
#include <map>

namespace Tessarin::campaigns {
namespace {

constexpr int stepCount = 40;
constexpr int untilAllIsSaved = 5;

/// `withPeers`: not of objects that have read them before, which keep to that until they are refreshed.
std::string linesOf(NSManagedObjectContext& context, bool withPeers) {
    std::string text;
    onQueueOf(context, [&] {
        for (auto const& item : fetched(context, "Item")) {
            auto const batch = item->valueForKey("batch").objectAs<NSManagedObject>();
            std::vector<RecordKey> peers;
            if (withPeers)
                for (auto const& peer : item->mutableSetValueForKey("peers").allObjects()) peers.push_back(peer->recordKey());
            std::ranges::sort(peers);
            text += fmt::format("{}: {} {} in {} with {}\n", item->recordKey(), item->valueForKey("label").description(),
                                integerOf(*item, "value"), batch ? batch->recordKey() : 0, fmt::join(peers, " "));
        }
    });
    return text;
}

class HeldObjects {
public:
    HeldObjects(Trial& trial, Tally& tally)
        : trial_(trial),
          tally_(tally),
          shelf_(trial.folder() + "/shelf.db", shelfModel(), Inference::Allowed, Synchronous::Off),
          levels_{shelf_.worker(), shelf_.worker(), shelf_.main, shelf_.root} {
        auto const policy = static_cast<NSMergePolicyType>(1 + trial.random(2)); // by property: nothing is refused
        for (auto const& context : levels_)
            onQueueOf(*context, [&] {
                context->setMergePolicy(make<NSMergePolicy>(policy));
                read(*context);
            });
    }

    void run() {
        for (int step = 1; step <= stepCount; ++step) {
            for (std::size_t level = 0; level < levels_.size(); ++level) disturb(level);
            if (step % untilAllIsSaved != 0) continue;
            for (auto const& context : levels_) save(*context);
            compare(step);
        }
    }

private:
    void read(NSManagedObjectContext& context) {
        items_[&context] = fetched(context, "Item");
        batches_[&context] = fetched(context, "Batch");
    }
    void save(NSManagedObjectContext& context) {
        onQueueOf(context, [&] { saveOrThrow(context); });
        tally_.add("saves");
    }
    void disturb(std::size_t level) {
        static constexpr std::uint64_t most[] = {6, 6, 3, 2}, saving[] = {2, 2, 5, 9};
        auto& context = *levels_[level];
        onQueueOf(context, [&] {
            for (auto changes = trial_.random(most[level]); changes > 0; --changes) change(context);
            if (trial_.chance(0.03)) trial_.chance(0.5) ? context.rollback() : read(context);
        });
        if (trial_.random(saving[level]) == 0) save(context);
    }
    Ref<NSManagedObject> any(Objects const& held) {
        auto const object = held.empty() ? nullptr : held[trial_.random(held.size())];
        return object && object->managedObjectContext() && !object->isDeleted() ? object : nullptr;
    }
    void change(NSManagedObjectContext& context) {
        auto& items = items_[&context];
        auto const item = any(items), other = any(items), batch = any(batches_[&context]);
        auto const what = item ? trial_.random(9) : 0;
        tally_.add("changes");
        switch (what) {
        case 0:
        case 1: items.push_back(context.insertNewObject("Item")); return;
        case 2: return item->setValueForKey(std::to_string(trial_.random(99)), "label");
        case 3:
        case 4: return item->setValueForKey(static_cast<std::int64_t>(trial_.random(99)), "value");
        case 5: return item->setValueForKey(batch ? Value(batch) : Value(), "batch");
        case 6: return other ? item->mutableSetValueForKey("peers").addObject(other) : void();
        case 7: return trial_.chance(0.3) ? context.deleteObject(*item) : void();
        default: batches_[&context].push_back(context.insertNewObject("Batch"));
        }
    }
    void compare(int step) {
        Shelf const other(trial_.folder() + "/shelf.db");
        auto const fresh = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
        fresh->setParentContext(shelf_.main);
        requireSame(*fresh, *other.root, true, fmt::format("after step {} in a new context", step));
        for (std::size_t level = 0; level < levels_.size(); ++level)
            requireSame(*levels_[level], *other.root, false, fmt::format("after step {} at level {}", step, level));
    }
    static void requireSame(NSManagedObjectContext& context, NSManagedObjectContext& file, bool withPeers,
                            std::string const& where) {
        auto const shown = linesOf(context, withPeers), stored = linesOf(file, withPeers);
        require(shown == stored, "{} is shown\n{}\nand the file has\n{}", where, shown, stored);
    }

    Trial& trial_;
    Tally& tally_;
    Shelf const shelf_;
    std::vector<Ref<NSManagedObjectContext>> const levels_;
    std::map<NSManagedObjectContext*, Objects> items_, batches_;
};

} // namespace

void tryHeld(Trial& trial, Tally& tally) { HeldObjects(trial, tally).run(); }

} // namespace Tessarin::campaigns
