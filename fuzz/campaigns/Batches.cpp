#include "fuzz/campaigns/Batches.h"

#include <algorithm>
#include <map>

namespace Tessarin::campaigns {
namespace {

constexpr std::int64_t keptBatches = 5;

std::int64_t sizeOf(std::int64_t batch) { return 3 + batch * 7 % 23; }

} // namespace

/// What the file holds after the save of batch `last`: for each of the newest batches its size and the value of its items,
/// which the save after its own raised.
std::string contentAfter(std::int64_t last) {
    std::string text;
    for (auto batch = std::max<std::int64_t>(1, last - keptBatches + 1); batch <= last; ++batch)
        text += fmt::format("{}:{}x{} ", batch, sizeOf(batch), batch == last ? batch : batch + 1);
    return text;
}

std::string contentOf(Shelf const& shelf) {
    std::string text;
    onQueueOf(*shelf.root, [&] {
        std::map<std::int64_t, std::map<std::int64_t, int>> batches; // number → value of the items → how many
        for (auto const& batch : fetched(*shelf.root, "Batch")) batches[integerOf(*batch, "number")];
        for (auto const& item : fetched(*shelf.root, "Item"))
            ++batches[integerOf(*item->valueForKey("batch").objectAs<NSManagedObject>(), "number")][integerOf(*item, "value")];
        for (auto const& [number, values] : batches) {
            text += fmt::format("{}:", number);
            for (auto const& [value, count] : values) text += fmt::format("{}x{} ", count, value);
        }
    });
    return text;
}

void saveBatch(NSManagedObjectContext& worker, std::int64_t number) {
    auto const batchNumbered = [&](std::int64_t wanted) {
        auto const found = fetched(worker, "Batch", NSPredicate::predicateWithFormat("number == %d", wanted));
        return found.empty() ? nullptr : found.front();
    };
    auto const batch = worker.insertNewObject("Batch");
    batch->setValueForKey(number, "number");
    auto items = batch->mutableSetValueForKey("items");
    for (std::int64_t at = 0; at < sizeOf(number); ++at) {
        auto const item = worker.insertNewObject("Item");
        item->setValueForKey(number, "value");
        item->setValueForKey(std::string(static_cast<std::size_t>(at * 40 % 300), 'x'), "label");
        items.addObject(item);
    }
    if (auto const before = batchNumbered(number - 1))
        for (auto const& item : before->mutableSetValueForKey("items").allObjects()) item->setValueForKey(number, "value");
    if (auto const old = batchNumbered(number - keptBatches)) worker.deleteObject(*old); // and its items
}

} // namespace Tessarin::campaigns
