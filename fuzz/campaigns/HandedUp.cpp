// Many saves handed up to a context that does not save: what is read above them, and what is written in the end, compared with
// the same saves of which each reached the file at once.
#include "fuzz/campaigns/HandedUp.h"

#include "fuzz/campaigns/Shelf.h"

#include <algorithm>

namespace Tessarin::campaigns {
namespace {

constexpr std::uint64_t stepCount = 60;

std::string labelsOf(Objects const& items) {
    std::string text;
    for (auto const& item : items) text += item->valueForKey("label").description() + ",";
    return text;
}

/// Every batch with its items in order, and every item with its values and peers.
std::string everything(NSManagedObjectContext& context) {
    std::vector<std::string> lines;
    onQueueOf(context, [&] {
        for (auto const& batch : fetched(context, "Batch"))
            lines.push_back(fmt::format("{}: {}", integerOf(*batch, "number"),
                                        labelsOf(batch->mutableSetValueForKey("items").allObjects())));
        for (auto const& item : fetched(context, "Item")) {
            auto peers = item->mutableSetValueForKey("peers").allObjects();
            std::ranges::sort(peers, {}, [](auto const& each) { return each->valueForKey("label").description(); });
            auto const batch = item->valueForKey("batch").objectAs<NSManagedObject>();
            lines.push_back(fmt::format("{} {} {} [{}]", item->valueForKey("label").description(), integerOf(*item, "value"),
                                        batch ? integerOf(*batch, "number") : -1, labelsOf(peers)));
        }
    });
    std::ranges::sort(lines);
    return fmt::format("{}", fmt::join(lines, "\n"));
}

/// One change by a worker, which `choices` decide: so that two runs make the same ones.
void change(NSManagedObjectContext& worker, std::int64_t step, std::span<std::uint64_t const> choices) {
    auto const chosen = [&](char const* entity, char const* key, std::uint64_t choice) -> Ref<NSManagedObject> {
        auto all = fetched(worker, entity);
        std::ranges::sort(all, {}, [&](auto const& each) { return each->valueForKey(key).description(); });
        return all.empty() ? nullptr : all[choice % all.size()];
    };
    auto const item = chosen("Item", "label", choices[1]), other = chosen("Item", "label", choices[2]);
    auto const batch = chosen("Batch", "number", choices[3]);
    switch (item ? choices[0] % 10 : 0) {
    case 0:
    case 1:
    case 2: {
        auto const fresh = worker.insertNewObject("Item");
        fresh->setValueForKey(std::to_string(step), "label");
        fresh->setValueForKey(batch, "batch");
        break;
    }
    case 3: return worker.deleteObject(*item);
    case 4: return item->setValueForKey(step, "value");
    case 5: return item->setValueForKey(batch, "batch");
    case 6:
    case 7: return item->mutableSetValueForKey("peers").addObject(other);
    case 8: return item->mutableSetValueForKey("peers").removeObject(other);
    default: {
        auto items = batch->mutableSetValueForKey("items").allObjects();
        std::ranges::reverse(items);
        batch->mutableSetValueForKey("items").setObjects(items);
    }
    }
}

/// What is in the file in the end.
std::string written(std::string const& file, std::span<std::uint64_t const> choices, bool savesEach) {
    {
        Shelf const shelf(file);
        onQueueOf(*shelf.root, [&] {
            for (int number = 0; number < 3; ++number) shelf.root->insertNewObject("Batch")->setValueForKey(number, "number");
            saveOrThrow(*shelf.root);
        });
        for (std::uint64_t step = 0; step < stepCount; ++step) {
            auto const worker = shelf.worker();
            onQueueOf(*worker, [&] {
                change(*worker, static_cast<std::int64_t>(step), choices.subspan(step * 4, 4));
                saveOrThrow(*worker);
            });
            if (savesEach) onQueueOf(*shelf.main, [&] { saveOrThrow(*shelf.main); });
            require(everything(*shelf.worker()) == everything(*worker), "step {} is read otherwise than it was saved", step);
        }
        auto const read = everything(*shelf.worker());
        shelf.saveToDisk(*shelf.worker());
        require(everything(*Shelf(file).root) == read, "something else was written than was read");
    }
    requireIntegrity(file);
    return everything(*Shelf(file).root);
}

} // namespace

void tryHandedUp(Trial& trial, Tally& tally) {
    std::vector<std::uint64_t> choices(stepCount * 4);
    for (auto& choice : choices) choice = trial.random(1000);
    auto const late = written(trial.folder() + "/late.db", choices, false);
    auto const early = written(trial.folder() + "/early.db", choices, true);
    require(late == early, "it matters when the level above saves:\n{}\n\n{}", late, early);
    tally.add("steps", stepCount);
}

} // namespace Tessarin::campaigns
