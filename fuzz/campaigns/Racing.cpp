#include "fuzz/campaigns/Racing.h"

#include "fuzz/campaigns/Child.h"
#include "fuzz/campaigns/Shelf.h"

#include <chrono>
#include <filesystem>
#include <set>
#include <thread>

namespace Tessarin::campaigns {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock; // the same for all processes

constexpr int makerCount = 4, storeCount = 6;
constexpr auto starting = std::chrono::milliseconds(60), betweenStores = std::chrono::milliseconds(8);

std::string storeFolder(std::string const& folder, int number) { return fmt::format("{}/{}/store", folder, number); }

/// To the microsecond: who sleeps wakes too late for a race.
void waitUntil(Clock::time_point moment) {
    while (Clock::now() < moment) std::this_thread::yield();
}

} // namespace

/// Arguments: the folder, a name, when to begin (nanoseconds of the steady clock).
int runMaker(std::span<char*> arguments) {
    Clock::time_point const begin{std::chrono::nanoseconds(std::stoll(arguments[2]))};
    for (int number = 0; number < storeCount; ++number) try {
            waitUntil(begin + number * betweenStores);
            Shelf const shelf(storeFolder(arguments[0], number) + "/shelf.db");
            onQueueOf(*shelf.root, [&] {
                shelf.root->insertNewObject("Item")->setValueForKey(arguments[1], "label");
                saveOrThrow(*shelf.root);
            });
        } catch (std::exception const& failure) {
            report(fmt::format("store {}: {}", number, failure.what()));
            return 1;
        }
    return 0;
}

void tryRacing(Trial& trial, Tally& tally) {
    for (int number = 0; number < storeCount; ++number) fs::create_directories(storeFolder(trial.folder(), number));
    std::vector<std::unique_ptr<Child>> makers;
    std::set<std::string> names;
    auto const begin = std::to_string((Clock::now() + starting).time_since_epoch() / std::chrono::nanoseconds(1));
    for (int at = 0; at < makerCount; ++at) {
        auto const& name = *names.insert(std::string(1, static_cast<char>('a' + at))).first;
        makers.push_back(std::make_unique<Child>("maker", std::vector<std::string>{trial.folder(), name, begin}));
    }
    for (auto const& maker : makers) {
        if (auto const line = maker->line()) throw Broken("a process that makes a store says: " + *line);
        auto const status = maker->wait();
        require(status == 0, "a process ended with {}", status);
    }
    for (int number = 0; number < storeCount; ++number) {
        auto const folder = storeFolder(trial.folder(), number);
        bool const isRescued = fs::exists(fs::path(folder).parent_path() / ".store.rescued");
        require(!isRescued, "a new store was refused by one of those who made it");
        requireIntegrity(folder + "/shelf.db");
        Shelf const shelf(folder + "/shelf.db");
        onQueueOf(*shelf.root, [&] {
            std::set<std::string> found;
            for (auto const& item : fetched(*shelf.root, "Item")) found.insert(item->valueForKey("label").description());
            require(found == names, "store {} holds {} of {} records", number, found.size(), names.size());
        });
    }
    tally.add("stores made in a race", storeCount);
}

} // namespace Tessarin::campaigns
