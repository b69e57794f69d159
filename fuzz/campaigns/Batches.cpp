#include "fuzz/campaigns/Batches.h"

#include <algorithm>
#include <map>

namespace Tessarin::campaigns {
namespace {

constexpr std::int64_t keptBatches = 5;

std::int64_t sizeOf(std::int64_t batch) { return 3 + batch * 7 % 23; }

/// An item: the number of its batch, and its place there when it was made.
struct ItemName {
    std::int64_t batch, place;
    auto operator<=>(ItemName const&) const = default;
};

std::string textOf(ItemName const& name, std::int64_t value, std::vector<ItemName> peers) {
    std::ranges::sort(peers);
    std::string text = fmt::format(" {}={}", name.place, value);
    for (auto const& [batch, place] : peers) text += fmt::format("~{}.{}", batch, place);
    return text;
}

bool isLinkedBack(std::int64_t place) { return place % 3 == 0; } // to an item of the batch before

/// Those of a batch are linked in pairs, the first of which is parted by the next save.
std::vector<ItemName> peersOf(ItemName const& name, std::int64_t oldest, std::int64_t last) {
    auto const [batch, place] = name;
    std::vector<ItemName> peers;
    auto const partner = place % 2 == 0 ? place + 1 : place - 1;
    if (partner < sizeOf(batch) && (place > 1 || batch == last)) peers.push_back({batch, partner});
    if (isLinkedBack(place) && batch > oldest) peers.push_back({batch - 1, place % sizeOf(batch - 1)});
    if (batch == last) return peers;
    for (std::int64_t other = place; other < sizeOf(batch + 1); other += sizeOf(batch))
        if (isLinkedBack(other)) peers.push_back({batch + 1, other});
    return peers;
}

ItemName nameOf(NSManagedObject& item, NSManagedObject& batch) {
    return {integerOf(batch, "number"), static_cast<std::int64_t>(item.valueForKey("weight").number())};
}

Objects membersOf(NSManagedObject& object, char const* key) { return object.mutableSetValueForKey(key).allObjects(); }

/// The batches that an item itself names: one, or in the later model many.
Objects batchesOf(NSManagedObject& item) {
    if (item.entity().propertyNamed("batches")) return membersOf(item, "batches");
    auto const batch = item.valueForKey("batch").objectAs<NSManagedObject>();
    return batch ? Objects{batch} : Objects{};
}

std::string textOf(NSManagedObject& batch) {
    auto text = fmt::format("{}:", integerOf(batch, "number"));
    for (auto const& item : membersOf(batch, "items")) {
        std::vector<ItemName> peers;
        for (auto const& peer : membersOf(*item, "peers"))
            for (auto const& home : batchesOf(*peer)) peers.push_back(nameOf(*peer, *home));
        text += textOf(nameOf(*item, batch), integerOf(*item, "value"), std::move(peers));
        auto const homes = batchesOf(*item);
        if (homes.size() != 1 || homes.front().get() != &batch) text += " (in another batch, it says itself)";
    }
    return text + '\n';
}

} // namespace

/// After the save of batch `last`: the newest batches, each with its items in their order, their values and links.
std::string contentAfter(std::int64_t last) {
    std::string text;
    auto const oldest = std::max<std::int64_t>(1, last - keptBatches + 1);
    std::int64_t items = 0;
    for (auto batch = oldest; batch <= last; ++batch) {
        bool const isLast = batch == last; // the save after its own raised its values and put its first item last
        text += fmt::format("{}:", batch);
        for (std::int64_t at = 0; at < sizeOf(batch); ++at) {
            ItemName const name{batch, isLast ? at : (at + 1) % sizeOf(batch)};
            text += textOf(name, isLast ? batch : batch + 1, peersOf(name, oldest, last));
        }
        text += '\n';
        items += sizeOf(batch);
    }
    return text + fmt::format("{} items", items);
}

std::string contentOf(Shelf const& shelf) {
    std::string text;
    onQueueOf(*shelf.root, [&] {
        std::map<std::int64_t, std::string> batches;
        for (auto const& batch : fetched(*shelf.root, "Batch")) batches[integerOf(*batch, "number")] += textOf(*batch);
        for (auto const& [number, words] : batches) text += words;
        text += fmt::format("{} items", fetched(*shelf.root, "Item").size());
    });
    return text;
}

std::string differenceOf(std::string const& found, std::string const& expected) {
    if (found == expected) return {};
    auto const common = std::ranges::mismatch(found, expected).in1 - found.begin();
    auto const lineOf = [&](std::string const& text) {
        // Where no line break is found, the sum is 0.
        auto const begin = common == 0 ? 0 : text.rfind('\n', static_cast<std::size_t>(common) - 1) + 1;
        return text.substr(begin, text.find('\n', begin) - begin);
    };
    return fmt::format("\"{}\" instead of \"{}\"", lineOf(found), lineOf(expected));
}

void saveBatch(NSManagedObjectContext& worker, std::int64_t number) {
    auto const batchNumbered = [&](std::int64_t wanted) {
        auto const found = fetched(worker, "Batch", NSPredicate::predicateWithFormat("number == %d", wanted));
        return found.empty() ? nullptr : found.front();
    };
    auto const before = batchNumbered(number - 1);
    auto const earlier = before ? membersOf(*before, "items") : Objects{};
    auto const named = [&](std::int64_t place) {
        return *std::ranges::find(earlier, place, [&](auto const& item) { return nameOf(*item, *before).place; });
    };
    auto const batch = worker.insertNewObject("Batch");
    batch->setValueForKey(number, "number");
    auto items = batch->mutableSetValueForKey("items");
    Ref<NSManagedObject> last;
    for (std::int64_t at = 0; at < sizeOf(number); ++at) {
        auto const item = worker.insertNewObject("Item");
        item->setValueForKey(number, "value");
        item->setValueForKey(static_cast<double>(at), "weight");
        item->setValueForKey(std::string(static_cast<std::size_t>(at * 40 % 300), 'x'), "label");
        items.addObject(item);
        if (at % 2 == 1) item->mutableSetValueForKey("peers").addObject(last);
        if (before && isLinkedBack(at)) item->mutableSetValueForKey("peers").addObject(named(at % sizeOf(number - 1)));
        last = item;
    }
    if (before) {
        for (auto const& item : earlier) item->setValueForKey(number, "value");
        auto order = before->mutableSetValueForKey("items");
        order.removeObject(earlier[0]);
        order.addObject(earlier[0]);
        earlier[0]->mutableSetValueForKey("peers").removeObject(named(1));
    }
    if (auto const old = batchNumbered(number - keptBatches)) worker.deleteObject(*old); // and its items
}

} // namespace Tessarin::campaigns
