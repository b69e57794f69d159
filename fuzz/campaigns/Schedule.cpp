// Random work over root, main and worker contexts, compared step by step with a model that knows nothing but layers of maps,
// while other threads read.
#include "fuzz/campaigns/Schedule.h"

#include "fuzz/campaigns/Shelf.h"
#include "fuzz/campaigns/Siblings.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <thread>

namespace Tessarin::campaigns {
namespace {

constexpr std::size_t workerCount = 2;
constexpr std::size_t contextCount = workerCount + 2; // the last are main and root
constexpr std::size_t mainAt = workerCount, rootAt = workerCount + 1;

struct Fields {
    std::optional<std::int64_t> value;
    std::optional<std::int64_t> weight;
    bool isInserted = false;
    bool isDeleted = false;
};
using Layer = std::map<int, Fields>; // by number of the item, its label
struct Item {
    std::int64_t value = 0, weight = 0;
    friend bool operator==(Item const&, Item const&) = default;
};
using View = std::map<int, Item>;

void apply(Layer const& layer, View& view) {
    for (auto const& [number, fields] : layer) {
        if (fields.isDeleted) {
            view.erase(number);
            continue;
        }
        if (fields.isInserted) view[number] = {};
        auto const found = view.find(number);
        if (found == view.end()) continue;
        if (fields.value) found->second.value = *fields.value;
        if (fields.weight) found->second.weight = *fields.weight;
    }
}

/// `upper` is laid over `lower`.
void fold(Layer const& upper, Layer& lower) {
    for (auto const& [number, fields] : upper) {
        auto& into = lower[number];
        if (fields.isDeleted) {
            into.isInserted ? static_cast<void>(lower.erase(number)) : static_cast<void>(into = {.isDeleted = true});
            continue;
        }
        into.isInserted = into.isInserted || fields.isInserted;
        if (fields.value) into.value = fields.value;
        if (fields.weight) into.weight = fields.weight;
    }
}

class Schedule {
public:
    Schedule(Trial& trial, Tally& tally) : trial_(trial), tally_(tally), shelf_(trial.folder() + "/shelf.db") {
        for (std::size_t at = 0; at < workerCount; ++at) contexts_.push_back(shelf_.worker());
        contexts_.push_back(shelf_.main);
        contexts_.push_back(shelf_.root);
    }

    void run() {
        std::atomic<bool> isOver{false};
        std::vector<std::jthread> readers;
        for (int reader = 0; reader < 2; ++reader) readers.emplace_back([&] { readUntil(isOver); });
        try {
            for (int step = 0; step < 60; ++step) {
                act();
                check(trial_.random(contextCount));
            }
            for (auto const at : {std::size_t{0}, std::size_t{1}, mainAt, rootAt}) save(at);
            for (std::size_t at = 0; at < contextCount; ++at) check(at);
        } catch (...) {
            isOver = true;
            throw;
        }
        isOver = true;
    }

private:
    // Each record has one context that changes it: several writers to one are the siblings' matter.
    bool isMine(std::size_t at, int number) const { return static_cast<std::size_t>(number) % contextCount == at; }

    void act() {
        auto const at = trial_.random(contextCount);
        switch (trial_.random(12)) {
        case 0:
        case 1:
        case 2: return insert(at);
        case 3:
        case 4: return update(at);
        case 5: return remove(at);
        case 6:
        case 7:
        case 8: return save(at);
        case 9: return rollback(at);
        case 10: return refresh(at);
        default: return exchangeWorker();
        }
    }

    void on(std::size_t at, FunctionRef<void(NSManagedObjectContext&)> work) {
        onQueueOf(*contexts_[at], [&] { work(*contexts_[at]); });
    }

    void insert(std::size_t at) {
        int const number = next_++ * static_cast<int>(contextCount) + static_cast<int>(at);
        on(at, [&](auto& context) {
            auto const item = context.insertNewObject("Item");
            item->setValueForKey(std::to_string(number), "label");
            item->setValueForKey(number, "value");
            item->setValueForKey(0, "weight");
        });
        layers_[at][number] = {.value = number, .weight = 0, .isInserted = true};
        tally_.add("insertions");
    }

    /// One of its own that it sees, or none.
    std::optional<int> chosen(std::size_t at) {
        std::vector<int> numbers;
        for (auto const& [number, item] : viewOf(at))
            if (isMine(at, number)) numbers.push_back(number);
        if (numbers.empty()) return {};
        return numbers[trial_.random(numbers.size())];
    }

    static Ref<NSManagedObject> find(NSManagedObjectContext& context, int number) {
        auto const found = fetched(context, "Item", NSPredicate::predicateWithFormat("label == %@", std::to_string(number)));
        require(found.size() == 1, "item {} is there {} times", number, found.size());
        return found.front();
    }

    void update(std::size_t at) {
        auto const number = chosen(at);
        if (!number) return;
        auto const value = static_cast<std::int64_t>(trial_.random(1000));
        bool const isValue = trial_.chance(0.5);
        on(at, [&](auto& context) { find(context, *number)->setValueForKey(value, isValue ? "value" : "weight"); });
        (isValue ? layers_[at][*number].value : layers_[at][*number].weight) = value;
        tally_.add("updates");
    }

    void remove(std::size_t at) {
        auto const number = chosen(at);
        if (!number) return;
        on(at, [&](auto& context) { context.deleteObject(*find(context, *number)); });
        fold({{*number, {.isDeleted = true}}}, layers_[at]);
        tally_.add("deletions");
    }

    void save(std::size_t at) {
        on(at, [](auto& context) { saveOrThrow(context); });
        auto const layer = std::exchange(layers_[at], {});
        auto const handedUp = std::exchange(received_[at], {});
        auto const deliver = [&](Layer const& changes) {
            if (at == rootAt)
                apply(changes, stored_);
            else
                fold(changes, received_[at < mainAt ? mainAt : rootAt]);
        };
        deliver(handedUp);
        deliver(layer);
        tally_.add("saves");
    }

    /// Its own changes go; what children handed up stays.
    void rollback(std::size_t at) {
        on(at, [](auto& context) { context.rollback(); });
        layers_[at].clear();
        tally_.add("rollbacks");
    }

    void refresh(std::size_t at) {
        on(at, [](auto& context) { context.refreshAllObjects(); });
        tally_.add("refreshes");
    }

    /// A worker without changes goes, another comes.
    void exchangeWorker() {
        auto const at = trial_.random(workerCount);
        if (layers_[at].empty()) contexts_[at] = shelf_.worker();
    }

    View viewOf(std::size_t at) const {
        View view = stored_;
        for (auto level : {rootAt, mainAt, at}) {
            if (level < at) continue; // below it
            apply(received_[level], view);
            apply(layers_[level], view);
            if (level == at) break;
        }
        return view;
    }

    void check(std::size_t at) {
        View seen;
        on(at, [&](auto& context) {
            for (auto const& item : fetched(context, "Item")) {
                auto const number = std::stoi(std::string(item->valueForKey("label").text()));
                require(!seen.contains(number), "item {} came twice", number);
                seen[number] = {integerOf(*item, "value"), item->valueForKey("weight").integer()};
            }
        });
        auto const expected = viewOf(at);
        for (auto const& [number, item] : expected) {
            require(seen.contains(number), "context {} misses item {}", at, number);
            require(seen[number] == item, "context {} shows item {} as {}/{}, not {}/{}", at, number, seen[number].value,
                    seen[number].weight, item.value, item.weight);
        }
        require(seen.size() == expected.size(), "context {} shows {} items, not {}", at, seen.size(), expected.size());
    }

    /// What it reads may be of any moment; that nothing goes wrong is the sanitizers' to see.
    void readUntil(std::atomic<bool> const& isOver) {
        auto const context = shelf_.worker();
        while (!isOver)
            context->performBlockAndWait([&] {
                for (auto const& item : fetched(*context, "Item")) item->valueForKey("value");
            });
    }

    Trial& trial_;
    Tally& tally_;
    Shelf shelf_;
    std::vector<Ref<NSManagedObjectContext>> contexts_;
    int next_ = 0;
    // The model:
    View stored_;
    Layer received_[contextCount]; // handed up by children
    Layer layers_[contextCount];   // its own
};

} // namespace

void trySchedule(Trial& trial, Tally& tally) {
    trial.number() % 4 == 3 ? trySiblings(trial, tally) : Schedule(trial, tally).run();
}

} // namespace Tessarin::campaigns
