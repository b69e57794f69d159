// Eight processes over one store, each saving, fetching and deleting as it likes.
#include "fuzz/campaigns/Processes.h"

#include "fuzz/campaigns/Child.h"
#include "fuzz/campaigns/Mirrors.h"
#include "fuzz/campaigns/Racing.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreQueryPrivate.h"
#include "fuzz/campaigns/Shelf.h"

#include <iterator>
#include <map>
#include <set>
#include <sstream>

namespace Tessarin::campaigns {
namespace {

constexpr int processCount = 8;

/// What one process has done and seen.
class Actor {
public:
    Actor(std::string const& file, std::string name, std::uint64_t seed)
        : shelf_(file), name_(std::move(name)), trial_("actor " + name_, seed) {}

    void act() {
        switch (auto const choice = trial_.random(10); choice) {
        case 0:
        case 1:
        case 2:
        case 3: return save([&](NSManagedObjectContext& worker) { insert(worker); });
        case 4:
        case 5: return save([&](NSManagedObjectContext& worker) { raise(worker); });
        case 6: return save([&](NSManagedObjectContext& worker) { removeOwn(worker); });
        default: return look();
        }
    }

private:
    void save(FunctionRef<void(NSManagedObjectContext&)> change) {
        auto const worker = shelf_.worker();
        removed_.clear();
        made_.clear();
        onQueueOf(*worker, [&] { change(*worker); });
        shelf_.saveToDisk(*worker);
        for (auto const& object : made_)
            report(fmt::format("made {} {}", object->recordKey(), object->valueForKey("label").description()));
        for (auto const& label : removed_) {
            // A deletion is given up where another process has changed the record meanwhile.
            bool isThere = false;
            onQueueOf(*worker, [&] {
                isThere = !fetched(*worker, "Item", NSPredicate::predicateWithFormat("label == %@", label)).empty();
            });
            if (isThere) own_.insert(label);
            report((isThere ? "kept 0 " : "gone 0 ") + label);
        }
    }

    void insert(NSManagedObjectContext& worker) {
        for (auto count = 1 + trial_.random(5); count > 0; --count) {
            auto const item = made_.emplace_back(worker.insertNewObject("Item"));
            item->setValueForKey(fmt::format("{}-{}", name_, ++lastLabel_), "label");
            own_.insert(fmt::format("{}-{}", name_, lastLabel_));
        }
    }

    /// Raises values of anybody's items, which others may be raising or deleting.
    void raise(NSManagedObjectContext& worker) {
        auto const items = fetched(worker, "Item");
        if (items.empty()) return;
        for (int times = 0; times < 3; ++times) {
            auto const& item = items[trial_.random(items.size())];
            item->setValueForKey(integerOf(*item, "value") + 1, "value");
        }
    }

    void removeOwn(NSManagedObjectContext& worker) {
        if (own_.empty()) return;
        auto const label = *std::next(own_.begin(), static_cast<std::ptrdiff_t>(trial_.random(own_.size())));
        for (auto const& item : fetched(worker, "Item", NSPredicate::predicateWithFormat("label == %@", label)))
            worker.deleteObject(*item);
        own_.erase(label);
        removed_.push_back(label);
    }

    /// What was seen saved once is there, and no version goes back.
    void look() {
        auto const context = shelf_.worker();
        onQueueOf(*context, [&] {
            std::set<std::string> labels;
            for (auto const& item : fetched(*context, "Item")) labels.insert(item->valueForKey("label").description());
            for (auto const& label : own_)
                if (!labels.contains(label)) report("missing 0 " + label);
        });
        StoreQuery query;
        query.entity = shelf_.coordinator->managedObjectModel()->entityNamed("Item");
        StoreAnswer answer;
        if (auto const error = shelf_.coordinator->store()->fetch(query, answer)) throw ErrorException(error);
        for (auto const& row : answer.rows) {
            auto& newest = versions_[row->key()];
            if (row->version() < newest) report(fmt::format("older {} from {} to {}", row->key(), newest, row->version()));
            newest = row->version();
        }
        report("looked 0 -");
    }

    Shelf shelf_;
    std::string name_;
    Trial trial_;
    int lastLabel_ = 0;
    std::set<std::string> own_; // labels on disk
    std::map<RecordKey, std::uint32_t> versions_;
    std::vector<std::string> removed_;
    Objects made_;
};

} // namespace

int runActor(std::span<char*> arguments) {
    try {
        Actor actor(arguments[0], arguments[1], std::stoull(arguments[2]));
        for (auto acts = std::stoi(arguments[3]); acts > 0; --acts) actor.act();
    } catch (std::exception const& failure) {
        report(std::string("failed 0 ") + failure.what());
        return 1;
    }
    return 0;
}

void tryProcesses(Trial& trial, Tally& tally) {
    tryRacing(trial, tally);
    tryMirrors(trial, tally);
    auto const file = trial.folder() + "/shelf.db"; // made by whoever comes first
    std::vector<std::unique_ptr<Child>> children;
    for (int at = 0; at < processCount; ++at)
        children.push_back(
            std::make_unique<Child>("actor", std::vector<std::string>{file, std::string(1, static_cast<char>('a' + at)),
                                                                      std::to_string(trial.random(1'000'000'000)), "40"}));
    std::map<RecordKey, std::string> labels;
    std::set<std::string> expected;
    for (auto const& child : children) {
        while (auto const line = child->line()) {
            std::istringstream words(*line);
            std::string what, label;
            RecordKey key = 0;
            words >> what >> key;
            std::getline(words >> std::ws, label);
            require(what == "made" || what == "gone" || what == "kept" || what == "looked", "a process says: {}", *line);
            tally.add(what);
            if (what == "made") {
                auto const [present, isNew] = labels.emplace(key, label);
                require(isNew, "the key {} was given twice: {} and {}", key, present->second, label);
                expected.insert(label);
            } else if (what == "gone") {
                expected.erase(label);
            }
        }
        auto const status = child->wait();
        require(status == 0, "a process ended with {}", status);
    }
    requireIntegrity(file);
    Shelf const shelf(file);
    onQueueOf(*shelf.root, [&] {
        std::set<std::string> found;
        for (auto const& item : fetched(*shelf.root, "Item")) found.insert(item->valueForKey("label").description());
        for (auto const& label : expected) require(found.contains(label), "{} was saved and is missing", label);
        for (auto const& label : found) require(expected.contains(label), "{} was deleted and is there", label);
    });
}

} // namespace Tessarin::campaigns
