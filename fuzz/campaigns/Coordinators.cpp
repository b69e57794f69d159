// Two coordinators of one file, whose contexts link and delete the same records under random merge policies.
#include "fuzz/campaigns/Coordinators.h"

#include "fuzz/campaigns/Shelf.h"

namespace Tessarin::campaigns {
namespace {

void change(Trial& trial, NSManagedObjectContext& context) {
    auto const any = [&](char const* entity) {
        auto const all = fetched(context, entity);
        return all.empty() ? context.insertNewObject(entity) : all[trial.random(all.size())];
    };
    auto const item = any("Item");
    switch (trial.random(7)) {
    case 0:
    case 1: return item->setValueForKey(any("Batch"), "batch");
    case 2: return item->mutableSetValueForKey("peers").addObject(any("Item"));
    case 3: return any("Batch")->mutableSetValueForKey("items").addObject(item);
    case 4: return context.insertNewObject("Item")->setValueForKey(any("Batch"), "batch");
    case 5: return context.deleteObject(*item);
    default:
        if (trial.chance(0.3)) context.deleteObject(*any("Batch")); // and its items
    }
}

} // namespace

void tryCoordinators(Trial& trial, Tally& tally) {
    auto const file = trial.folder() + "/shelf.db";
    Shelf const first(file), second(file);
    for (int step = 0; step < 10; ++step) {
        for (auto const* shelf : {&first, &second})
            onQueueOf(*shelf->root, [&] {
                shelf->root->setMergePolicy(make<NSMergePolicy>(static_cast<NSMergePolicyType>(1 + trial.random(4))));
                for (auto changes = 1 + trial.random(5); changes > 0; --changes) change(trial, *shelf->root);
            });
        for (auto const* shelf : {&first, &second}) onQueueOf(*shelf->root, [&] { saveOrThrow(*shelf->root); });
        Ref<NSError> error;
        auto const findings = first.coordinator->verify(error);
        require(!error, "the file cannot be looked at: {}", error ? error->localizedDescription() : "");
        for (auto const& finding : findings) require(false, "after step {}: {}", step, finding);
        tally.add("saves", 2);
    }
}

} // namespace Tessarin::campaigns
