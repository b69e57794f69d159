#include "fuzz/campaigns/Mirrors.h"

#include "Tessarin/platform/objectgraph/live/LiveList.h"
#include "fuzz/campaigns/Child.h"
#include "fuzz/campaigns/Shelf.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace Tessarin::campaigns {
namespace {

namespace fs = std::filesystem;

/// Contexts at three levels that follow what others save, and keep an object of each record that they ever saw.
class Mirror {
public:
    Mirror(std::string file, std::string name, std::uint64_t seed)
        : file_(std::move(file)), name_(std::move(name)), trial_("mirror " + name_, seed), coordinator_(open(file_, true)) {
        contexts_.push_back(make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue));
        contexts_[0]->setPersistentStoreCoordinator(coordinator_);
        while (contexts_.size() < 3) {
            contexts_.push_back(make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue));
            contexts_.back()->setParentContext(contexts_[contexts_.size() - 2]);
        }
        for (auto const& context : contexts_) context->setMergePolicy(make<NSMergePolicy>(NSMergePolicyType(1)));
        onQueueOf(*contexts_[1], [&] {
            auto const request = make<NSFetchRequest>("Item");
            request->setSortDescriptors({NSSortDescriptor::sortDescriptorWithKey("label")});
            list_ = make<LiveList>(contexts_[1], request);
        });
    }
    ~Mirror() {
        contexts_[1]->performBlockAndWait([&] { list_ = nullptr; });
    }
    Mirror(Mirror const&) = delete;
    Mirror& operator=(Mirror const&) = delete;

    void act() {
        auto& worker = *contexts_[2];
        onQueueOf(worker, [&] {
            auto items = fetched(worker, "Item");
            kept_.insert(kept_.end(), items.begin(), items.end());
            for (auto changes = 1 + trial_.random(3); changes > 0; --changes) change(worker, items);
        });
        save();
    }
    void save() {
        for (std::size_t level = contexts_.size(); level-- > 0;)
            onQueueOf(*contexts_[level], [&] { saveOrThrow(*contexts_[level]); });
    }
    void insertOne() {
        onQueueOf(*contexts_[2], [&] { insert(*contexts_[2]); });
        save();
    }

    /// Whether list and kept objects come to show what the file holds, without being asked to look.
    std::string differenceInTheEnd() {
        auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (;;) {
            auto const difference = this->difference();
            if (difference.empty() || std::chrono::steady_clock::now() > end) return difference;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }

private:
    static Ref<NSPersistentStoreCoordinator> open(std::string const& file, bool merges) {
        auto coordinator = make<NSPersistentStoreCoordinator>(shelfModel());
        Ref<NSError> error;
        Dictionary const options{{NSStoreMergesOthersOption, merges},
                                 {NSSQLitePragmasOption, Dictionary{{"synchronous", "OFF"}}}};
        if (!coordinator->addPersistentStoreWithType(NSSQLiteStoreType, {}, NSURL::fileURLWithPath(file), options, error))
            throw ErrorException(error);
        return coordinator;
    }

    void insert(NSManagedObjectContext& worker) {
        auto const item = worker.insertNewObject("Item");
        item->setValueForKey(fmt::format("{}-{}", name_, ++lastLabel_), "label");
        kept_.push_back(item);
    }

    void change(NSManagedObjectContext& worker, Objects& items) {
        auto const choice = items.empty() ? 0 : trial_.random(6);
        auto const any = [&] { return items[trial_.random(items.size())]; };
        if (choice <= 1) return insert(worker);
        auto const item = any();
        if (item->isDeleted()) return;
        if (choice <= 3) item->setValueForKey(integerOf(*item, "value") + 1, "value");
        if (choice == 4) {
            worker.deleteObject(*item);
            std::erase(kept_, item); // where the save gives the deletion up, the record has another object
        }
        if (choice == 5)
            if (auto const peer = any(); !peer->isDeleted()) item->mutableSetValueForKey("peers").addObject(peer);
    }

    static std::string shown(NSManagedObject& item) {
        std::vector<std::string> peers;
        for (auto const& peer : item.mutableSetValueForKey("peers").allObjects())
            peers.push_back(peer->valueForKey("label").description());
        std::ranges::sort(peers);
        return fmt::format("{}={} {}", item.valueForKey("label").description(), integerOf(item, "value"), fmt::join(peers, ","));
    }

    std::string difference() {
        std::map<RecordKey, std::string> expected;
        std::vector<RecordKey> order;
        auto const fresh = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
        fresh->setPersistentStoreCoordinator(open(file_, false));
        onQueueOf(*fresh, [&] {
            for (auto const& item : fetched(*fresh, "Item")) expected[item->recordKey()] = shown(*item);
        });
        std::string found;
        auto const compare = [&](char const* where, NSManagedObject& item) {
            auto const is = expected.find(item.recordKey());
            auto const wanted = is == expected.end() ? "gone" : is->second;
            auto const seen = item.isDeleted() || !item.managedObjectContext() ? "gone" : shown(item);
            if (seen != wanted) found = fmt::format("{} shows {} instead of {}", where, seen, wanted);
        };
        onQueueOf(*contexts_[1], [&] {
            if (list_->size() != expected.size()) found = fmt::format("the list has {} of {}", list_->size(), expected.size());
            for (std::size_t at = 0; at < list_->size() && found.empty(); ++at) compare("the list", *(*list_)[at]);
        });
        onQueueOf(*contexts_[2], [&] {
            for (auto const& item : kept_)
                if (found.empty()) compare("the worker", *item);
        });
        return found;
    }

    std::string const file_, name_;
    Trial trial_;
    Ref<NSPersistentStoreCoordinator> coordinator_;
    std::vector<Ref<NSManagedObjectContext>> contexts_; // root first
    Ref<LiveList> list_;
    Objects kept_; // of the worker
    int lastLabel_ = 0;
};

void waitFor(std::string const& path) {
    while (!fs::exists(path)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

} // namespace

/// Arguments: the file, a name, the other's name or "" (then it acts until it is killed), a seed, how often it acts.
int runMirror(std::span<char*> arguments) {
    try {
        std::string const file = arguments[0], name = arguments[1], other = arguments[2];
        Mirror mirror(file, name, std::stoull(arguments[3]));
        report("opened");
        for (auto acts = std::stoi(arguments[4]); acts > 0; --acts) mirror.act();
        std::ofstream(file + "." + name + ".done");
        waitFor(file + "." + other + ".done");
        waitFor(file + ".killed");
        mirror.insertOne(); // which makes up for notices of who was killed
        std::ofstream(file + "." + name + ".last");
        waitFor(file + "." + other + ".last");
        auto const difference = mirror.differenceInTheEnd();
        report(difference.empty() ? "same" : difference);
    } catch (std::exception const& failure) {
        report(std::string("failed: ") + failure.what());
        return 1;
    }
    return 0;
}

void tryMirrors(Trial& trial, Tally& tally) {
    auto const file = trial.folder() + "/mirrored.db";
    auto const start = [&](std::string const& name, std::string const& other, std::string const& acts) {
        return std::make_unique<Child>(
            "mirror", std::vector<std::string>{file, name, other, std::to_string(trial.random(1'000'000'000)), acts});
    };
    auto const a = start("a", "b", "15"), b = start("b", "a", "15"), victim = start("v", "nobody", "1000000");
    bool const isKilled = victim->line() == "opened";
    if (isKilled) std::this_thread::sleep_for(std::chrono::microseconds(trial.random(30'000)));
    victim->kill();
    std::ofstream(file + ".killed");
    for (auto* child : {a.get(), b.get()}) {
        require(child->line() == "opened", "a process could not open the store");
        auto const verdict = child->line().value_or("nothing");
        require(verdict == "same", "{}", verdict);
        require(child->wait() == 0, "a process ended badly");
    }
    tally.add("mirrors agree");
    if (isKilled) tally.add("killed beside them");
    victim->wait();
    requireIntegrity(file);
}

} // namespace Tessarin::campaigns
