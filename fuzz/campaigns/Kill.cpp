// Killed at any moment of a save or of a migration.
#include "fuzz/campaigns/Kill.h"

#include "fuzz/campaigns/Batches.h"
#include "fuzz/campaigns/Child.h"
#include "fuzz/campaigns/Shelf.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>
#include <unistd.h>

namespace Tessarin::campaigns {
namespace {

void trySaves(Trial& trial, Tally& tally) {
    auto const file = trial.folder() + "/shelf.db";
    Child saver("saver", {file});
    std::int64_t acknowledged = 0;
    for (auto saves = trial.random(9); acknowledged < static_cast<std::int64_t>(saves);) {
        auto const line = saver.line();
        if (!line) throw Broken(fmt::format("the saving process ended by itself: {}", saver.wait()));
        acknowledged = std::stoll(*line);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(trial.random(4000))); // to hit any moment of a save
    saver.kill();
    while (auto const line = saver.line()) acknowledged = std::stoll(*line);
    saver.wait();
    tally.add("saves acknowledged", static_cast<std::uint64_t>(acknowledged));

    Shelf const shelf(file);
    requireIntegrity(file);
    auto const content = contentOf(shelf);
    bool const isNext = content == contentAfter(acknowledged + 1);
    require(isNext || content == contentAfter(acknowledged), "after {} saves that were acknowledged: {}", acknowledged,
            differenceOf(content, contentAfter(acknowledged)));
    if (isNext) tally.add("saves found whole that were not acknowledged");
}

constexpr int itemsBeforeMigration = 300;

void fillForMigration(std::string const& file) {
    Shelf const shelf(file);
    onQueueOf(*shelf.root, [&] {
        Ref<NSManagedObject> batch, last;
        for (int at = 0; at < itemsBeforeMigration; ++at) {
            if (at % 30 == 0) {
                batch = shelf.root->insertNewObject("Batch");
                batch->setValueForKey(at / 30, "number");
            }
            auto const item = shelf.root->insertNewObject("Item");
            item->setValueForKey("item " + std::to_string(at), "label");
            item->setValueForKey(at, "value");
            item->setValueForKey(batch, "batch");
            if (last) item->mutableSetValueForKey("peers").addObject(last);
            last = item;
        }
        saveOrThrow(*shelf.root);
    });
}

void requireWhole(Shelf const& shelf, char const* label, char const* batches) {
    onQueueOf(*shelf.root, [&] {
        auto const items = fetched(*shelf.root, "Item");
        require(items.size() == itemsBeforeMigration, "{} of {} items", items.size(), itemsBeforeMigration);
        std::size_t links = 0;
        for (auto const& item : items) {
            auto const value = integerOf(*item, "value");
            require(item->valueForKey(label) == Value("item " + std::to_string(value)), "item {} is labelled {}", value,
                    item->valueForKey(label).description());
            auto const batch = item->entity().propertyNamed(batches)->asRelationship()->isToMany()
                                   ? item->mutableSetValueForKey(batches).allObjects().at(0)
                                   : item->valueForKey(batches).objectAs<NSManagedObject>();
            require(batch && integerOf(*batch, "number") == value / 30, "item {} is in another batch", value);
            links += item->mutableSetValueForKey("peers").count();
        }
        require(links == 2 * (itemsBeforeMigration - 1), "{} links", links);
        for (auto const& batch : fetched(*shelf.root, "Batch")) {
            auto const inOrder = batch->mutableSetValueForKey("items").allObjects();
            require(std::ranges::is_sorted(inOrder, {}, [](auto const& item) { return integerOf(*item, "value"); }),
                    "a batch lost its order");
        }
    });
}

void tryMigration(Trial& trial, Tally& tally) {
    auto const folder = trial.folder() + "/store";
    std::filesystem::create_directory(folder);
    auto const file = folder + "/shelf.db";
    fillForMigration(file);
    Child migrator("migrator", {file});
    migrator.line(); // it is about to open
    std::this_thread::sleep_for(std::chrono::microseconds(trial.random(5000)));
    migrator.kill();
    migrator.wait();
    requireIntegrity(file);
    try {
        requireWhole(Shelf(file, shelfModel(), Inference::Forbidden), "label", "batch");
        tally.add("old stores after a migration was killed");
    } catch (ErrorException const&) {
        requireWhole(Shelf(file, laterShelfModel(), Inference::Forbidden), "name", "batches");
        tally.add("new ones");
    }
}

} // namespace

void tryKill(Trial& trial, Tally& tally) { trial.number() % 3 == 2 ? tryMigration(trial, tally) : trySaves(trial, tally); }

void judgeKill(Tally const& tally) {
    require(tally.of("saves acknowledged") > 0 && tally.of("old stores after a migration was killed") > 0 &&
                tally.of("new ones") > 0,
            "too few moments were met: {}", tally.text());
}

int runSaver(std::span<char*> arguments) {
    Shelf const shelf(arguments[0]);
    auto const worker = shelf.worker();
    for (std::int64_t number = 1;; ++number) {
        onQueueOf(*worker, [&] { saveBatch(*worker, number); });
        shelf.saveToDisk(*worker);
        report(std::to_string(number));
    }
}

int runMigrator(std::span<char*> arguments) {
    laterShelfModel();
    report("opening");
    Shelf const shelf(arguments[0], laterShelfModel());
    report("done");
    ::pause();
    return 0;
}

} // namespace Tessarin::campaigns
