// Random edits of linked records over root, main and two workers, with saves that fail, references that are let go and kept, and
// every way to forget; compared with layers of maps.
#include "fuzz/campaigns/Levels.h"

#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "fuzz/campaigns/Shelf.h"

#include <algorithm>
#include <map>
#include <set>

namespace Tessarin::campaigns {
namespace {

constexpr std::size_t workerCount = 2;
constexpr std::size_t contextCount = workerCount + 2; // the last are main and root
constexpr std::size_t mainAt = workerCount, rootAt = workerCount + 1;

Ref<NSManagedObjectModel> const& levelsModel() {
    using Type = NSAttributeType;
    static auto const model = ModelBuilder()
                                  .entity("Box")
                                  .attribute("number", Type::Integer64, {.indexed = true})
                                  .toMany("items", "Item", {.inverse = "box", .deleteRule = NSDeleteRule::Nullify})
                                  .entity("Item")
                                  .attribute("number", Type::Integer64, {.indexed = true})
                                  .attribute("value", Type::Integer64, {.optional = false})
                                  .toOne("box", "Box", {.inverse = "items"})
                                  .toOne("next", "Item") // has no inverse that would keep the other end in memory
                                  .build();
    return model;
}

using Link = std::optional<int>; // to a record by its number
/// Changes of one record, a box or an item.
struct Change {
    bool isInserted = false, isDeleted = false, isBox = false;
    std::optional<std::int64_t> value;
    std::optional<Link> box, next;
};
using Layer = std::map<int, Change>; // by number
struct Shown {
    bool isBox = false;
    std::int64_t value = 0;
    Link box, next;
    friend bool operator==(Shown const&, Shown const&) = default;
};
using View = std::map<int, Shown>;

void overlay(Layer const& layer, View& view) {
    for (auto const& [number, change] : layer) {
        if (change.isDeleted) {
            view.erase(number);
            continue;
        }
        if (change.isInserted) view[number] = {.isBox = change.isBox};
        auto const found = view.find(number);
        if (found == view.end()) continue;
        if (change.value) found->second.value = *change.value;
        if (change.box) found->second.box = *change.box;
        if (change.next) found->second.next = *change.next;
    }
}

/// `upper` is laid over `lower`.
void fold(Layer const& upper, Layer& lower) {
    for (auto const& [number, change] : upper) {
        auto& into = lower[number];
        if (change.isDeleted) {
            into.isInserted ? static_cast<void>(lower.erase(number)) : static_cast<void>(into = {.isDeleted = true});
            continue;
        }
        if (change.isInserted) into = {.isInserted = true, .isBox = change.isBox};
        if (change.value) into.value = change.value;
        if (change.box) into.box = change.box;
        if (change.next) into.next = change.next;
    }
}

class Levels {
public:
    Levels(Trial& trial, Tally& tally) : trial_(trial), tally_(tally), shelf_(trial.folder() + "/levels.db", levelsModel()) {
        for (std::size_t at = 0; at < workerCount; ++at) contexts_.push_back(shelf_.worker());
        contexts_.push_back(shelf_.main);
        contexts_.push_back(shelf_.root);
        token_ = NSNotificationCenter::defaultCenter()->addObserverForName(
            NSManagedObjectContextDidSaveNotification, nullptr, nullptr, [this](auto const& note) { lastSave_ = note; });
    }
    ~Levels() { NSNotificationCenter::defaultCenter()->removeObserver(*token_); }

    void run() {
        for (int step = 0; step < 80; ++step) {
            act();
            check(trial_.random(contextCount));
        }
        for (auto const at : {std::size_t{0}, std::size_t{1}, mainAt, rootAt}) save(at);
        for (std::size_t at = 0; at < contextCount; ++at) check(at);
        Shelf const later(trial_.folder() + "/levels.db", levelsModel());
        onQueueOf(*later.root, [&] { require(viewIn(*later.root) == resolved(stored_), "the file holds something else"); });
    }

private:
    // Each record has one context that changes its values: who wins where two do is another campaign's matter.
    bool isMine(std::size_t at, int number) const { return static_cast<std::size_t>(number) % contextCount == at; }
    int newNumber(std::size_t at) { return next_++ * static_cast<int>(contextCount) + static_cast<int>(at); }

    void act() {
        auto const at = trial_.random(contextCount);
        switch (trial_.random(20)) {
        case 0:
        case 1: return insert(at, false);
        case 2: return insert(at, true);
        case 3: return change(at);
        case 4:
        case 5: return link(at, "box");
        case 6:
        case 7: return link(at, "next");
        case 8:
        case 9: return remove(at);
        case 10:
        case 11:
        case 12: return save(at);
        case 13: return failToSave(at);
        case 14: return rollback(at);
        case 15: return forget(at);
        case 16: return merge(at);
        case 17: return refreshOne(at);
        default: held_[at].clear(); return;
        }
    }

    void on(std::size_t at, FunctionRef<void(NSManagedObjectContext&)> work) {
        onQueueOf(*contexts_[at], [&] { work(*contexts_[at]); });
    }

    /// Keeps some of what it meets, so that objects of all ages are about.
    Ref<NSManagedObject> perhapsKept(std::size_t at, Ref<NSManagedObject> object) {
        if (trial_.chance(0.3)) held_[at].push_back(object);
        return object;
    }

    void insert(std::size_t at, bool isBox) {
        auto const number = newNumber(at);
        on(at, [&](auto& context) {
            auto const object = perhapsKept(at, context.insertNewObject(isBox ? "Box" : "Item"));
            object->setValueForKey(number, "number");
            if (!isBox) object->setValueForKey(number, "value");
        });
        layers_[at][number] = {.isInserted = true, .isBox = isBox};
        if (!isBox) layers_[at][number].value = number;
        tally_.add("insertions");
    }

    std::optional<int> chosen(std::size_t at, FunctionRef<bool(int, Shown const&)> fits) {
        std::vector<int> numbers;
        for (auto const& [number, shown] : viewOf(at))
            if (fits(number, shown)) numbers.push_back(number);
        if (numbers.empty()) return {};
        return numbers[trial_.random(numbers.size())];
    }
    std::optional<int> chosenItem(std::size_t at) {
        return chosen(at, [&](int number, Shown const& shown) { return isMine(at, number) && !shown.isBox; });
    }

    static Ref<NSManagedObject> find(NSManagedObjectContext& context, int number, bool isBox = false) {
        auto const found = fetched(context, isBox ? "Box" : "Item", NSPredicate::predicateWithFormat("number == %@", number));
        require(found.size() == 1, "record {} is there {} times", number, found.size());
        return found.front();
    }

    void change(std::size_t at) {
        auto const number = chosenItem(at);
        if (!number) return;
        auto const value = static_cast<std::int64_t>(trial_.random(1000));
        on(at, [&](auto& context) { perhapsKept(at, find(context, *number))->setValueForKey(value, "value"); });
        layers_[at][*number].value = value;
        tally_.add("changes");
    }

    void link(std::size_t at, char const* key) {
        bool const isBox = key[0] == 'b';
        auto const number = chosenItem(at);
        auto const other = chosen(at, [&](int each, Shown const& shown) { return shown.isBox == isBox && !isAboutToGo(each); });
        if (!number || !other) return;
        Link const target = trial_.chance(0.2) ? Link() : Link(*other);
        on(at, [&](auto& context) {
            auto const item = perhapsKept(at, find(context, *number));
            item->setValueForKey(target ? Value(find(context, *target, isBox)) : Value(), key);
        });
        (isBox ? layers_[at][*number].box : layers_[at][*number].next) = target;
        if (target) linked_[at].insert(*target);
        tally_.add("links");
    }

    bool isAboutToGo(int record) const {
        return std::ranges::any_of(layers_,
                                   [&](Layer const& layer) { return layer.contains(record) && layer.at(record).isDeleted; });
    }

    /// What nobody's item lies in: who wins where one deletes a box and another uses it is another matter.
    bool isUsed(int box) const {
        auto const uses = [&](auto const& layer) {
            for (auto const& [number, change] : layer)
                if (change.box && *change.box == box) return true;
            return false;
        };
        for (auto const& [number, shown] : stored_)
            if (shown.box == box) return true;
        for (std::size_t at = 0; at < contextCount; ++at)
            if (uses(received_[at]) || uses(layers_[at]) || linked_[at].contains(box)) return true;
        return false;
    }

    void remove(std::size_t at) {
        auto const number =
            chosen(at, [&](int each, Shown const& shown) { return isMine(at, each) && !(shown.isBox && isUsed(each)); });
        if (!number) return;
        bool const isBox = viewOf(at)[*number].isBox;
        on(at, [&](auto& context) { context.deleteObject(*perhapsKept(at, find(context, *number, isBox))); });
        fold({{*number, {.isDeleted = true}}}, layers_[at]);
        tally_.add("deletions");
    }

    void save(std::size_t at) {
        on(at, [](auto& context) { saveOrThrow(context); });
        auto const layer = std::exchange(layers_[at], {});
        linked_[at].clear();
        auto const handedUp = std::exchange(received_[at], {});
        for (auto const* changes : {&handedUp, &layer}) {
            if (at == rootAt)
                overlay(*changes, stored_);
            else
                fold(*changes, received_[at < mainAt ? mainAt : rootAt]);
        }
        tally_.add("saves");
    }

    /// A worker's save is refused after keys were given: it builds on what a sibling has changed meanwhile.
    void failToSave(std::size_t at) {
        if (at >= workerCount) return;
        auto const number = chosenItem(at);
        View above = stored_;
        for (auto const level : {rootAt, mainAt}) overlay(received_[level], above);
        if (!number || !above.contains(*number) || layers_[at].contains(*number) || layers_[mainAt].contains(*number) ||
            layers_[rootAt].contains(*number))
            return;
        auto const theirs = std::int64_t{1000} + newNumber(at);
        on(at, [&](auto& context) {
            auto const contested = find(context, *number);
            contested->setValueForKey(-theirs, "value");
            auto const sibling = shelf_.worker();
            onQueueOf(*sibling, [&] {
                find(*sibling, *number)->setValueForKey(theirs, "value");
                saveOrThrow(*sibling);
            });
            auto const policy = context.mergePolicy();
            context.setMergePolicy(NSErrorMergePolicy());
            Ref<NSError> error;
            require(!context.save(error), "a conflict was not noticed");
            context.setMergePolicy(policy);
            context.refreshObject(*contested, false);
        });
        tally_.add("saves refused");
        received_[mainAt][*number].value = theirs;
    }

    /// Whether another context, or what was handed up, changes a record or leads to it.
    bool isUsedElsewhere(std::size_t by, int record) const {
        auto const uses = [&](Layer const& layer) {
            return layer.contains(record) || std::ranges::any_of(layer, [&](auto const& each) {
                return (each.second.box && *each.second.box == record) || (each.second.next && *each.second.next == record);
            });
        };
        for (std::size_t at = 0; at < contextCount; ++at)
            if (uses(received_[at]) || (at != by && (uses(layers_[at]) || linked_[at].contains(record)))) return true;
        return false;
    }
    /// What becomes of those who use a new record that is taken back is another matter.
    bool hasNewRecordInUse(std::size_t at) const {
        return std::ranges::any_of(layers_[at],
                                   [&](auto const& each) { return each.second.isInserted && isUsedElsewhere(at, each.first); });
    }

    /// Its own changes go; what children handed up stays.
    void rollback(std::size_t at) {
        if (hasNewRecordInUse(at)) return;
        on(at, [](auto& context) { context.rollback(); });
        layers_[at].clear();
        linked_[at].clear();
        refreshBelow(at);
        tally_.add("rollbacks");
    }

    /// Objects below that have shown what was unsaved here go on showing it until they are read again.
    void refreshBelow(std::size_t at) {
        for (std::size_t below = 0; below < std::min(at, rootAt); ++below)
            if (at >= mainAt) on(below, [](auto& context) { context.refreshAllObjects(); });
    }

    void forget(std::size_t at) {
        if (hasNewRecordInUse(at)) return;
        if (trial_.chance(0.5)) held_[at].clear();
        on(at, [](auto& context) { context.reset(); });
        layers_[at].clear();
        linked_[at].clear();
        held_[at].clear();
        refreshBelow(at);
        tally_.add("resets");
    }

    void merge(std::size_t at) {
        if (!lastSave_) return;
        on(at, [&](auto& context) { context.mergeChangesFromContextDidSaveNotification(*lastSave_); });
        tally_.add("merges");
    }

    /// One that has no unsaved changes.
    void refreshOne(std::size_t at) {
        if (held_[at].empty()) return;
        auto const& object = held_[at][trial_.random(held_[at].size())];
        on(at, [&](auto& context) {
            if (!object->hasChanges()) context.refreshObject(*object, trial_.chance(0.5));
        });
        tally_.add("refreshes");
    }

    View viewOf(std::size_t at) const {
        View view = stored_;
        for (auto level : {rootAt, mainAt, at}) {
            if (level < at) continue; // below it
            overlay(received_[level], view);
            overlay(layers_[level], view);
            if (level == at) break;
        }
        return resolved(std::move(view));
    }
    /// A link to a record that is not there is none.
    static View resolved(View view) {
        for (auto& [number, shown] : view)
            for (auto* link : {&shown.box, &shown.next})
                if (*link && !view.contains(**link)) link->reset();
        return view;
    }

    /// The number that a to-one leads to, if the record is there, and not about to go: `next` has no inverse that would let go of
    /// it.
    static Link linkOf(NSManagedObjectContext& context, NSManagedObject& object, char const* key) {
        auto const other = object.valueForKey(key).objectAs<NSManagedObject>();
        Ref<NSError> error;
        if (!other || other->isDeleted() || !context.existingObjectWithID(*other->objectID(), error)) return {};
        return static_cast<int>(integerOf(*other, "number"));
    }

    View viewIn(NSManagedObjectContext& context) {
        View view;
        for (auto const& item : fetched(context, "Item")) {
            auto const number = static_cast<int>(integerOf(*item, "number"));
            require(!view.contains(number), "item {} came twice", number);
            view[number] = {false, integerOf(*item, "value"), linkOf(context, *item, "box"), linkOf(context, *item, "next")};
        }
        for (auto const& box : fetched(context, "Box")) {
            auto const number = static_cast<int>(integerOf(*box, "number"));
            require(!view.contains(number), "box {} came twice", number);
            view[number] = {.isBox = true};
            std::set<int> members, pointing;
            for (auto const& item : box->mutableSetValueForKey("items").allObjects()) {
                require(members.insert(static_cast<int>(integerOf(*item, "number"))).second, "box {} holds an item twice",
                        number);
                require(box->mutableSetValueForKey("items").containsObject(item), "box {} does not know what it holds", number);
            }
            for (auto const& [other, shown] : view)
                if (shown.box == number) pointing.insert(other);
            require(members == pointing, "box {} holds {} items, and {} say that they are in it", number, members.size(),
                    pointing.size());
        }
        return view;
    }

    void check(std::size_t at) {
        auto const expected = viewOf(at);
        on(at, [&](auto& context) {
            if (trial_.chance(0.7)) held_[at].clear(); // what is held shows what it was filled with until it is refreshed
            context.refreshAllObjects();
            auto const seen = viewIn(context);
            for (auto const& [number, shown] : expected) {
                require(seen.contains(number), "context {} misses record {}", at, number);
                auto const& there = seen.at(number);
                require(there == shown, "context {} shows record {} as {}/{}/{}, not {}/{}/{}", at, number, there.value,
                        there.box.value_or(-1), there.next.value_or(-1), shown.value, shown.box.value_or(-1),
                        shown.next.value_or(-1));
            }
            require(seen.size() == expected.size(), "context {} shows {} records, not {}", at, seen.size(), expected.size());
            checkIdentities(context);
        });
    }

    /// Each registered object once, and in every context and at every time by the same identity.
    void checkIdentities(NSManagedObjectContext& context) {
        std::set<NSManagedObject const*> objects;
        for (auto const& object : context.registeredObjects()) {
            require(objects.insert(object.get()).second, "an object is registered twice");
            auto const id = object->objectID();
            require(context.objectRegisteredForID(*id) == object, "an identity leads to another object");
            if (object->isDeleted() || object->valueForKey("number").isAbsent()) continue; // its record is gone
            auto const known = identities_.try_emplace(static_cast<int>(integerOf(*object, "number")), id).first->second;
            require(known == id, "record {} has two identities, {} and {}", integerOf(*object, "number"), known->description(),
                    id->description());
        }
    }

private:
    Trial& trial_;
    Tally& tally_;
    Shelf shelf_;
    std::vector<Ref<NSManagedObjectContext>> contexts_;
    std::vector<Ref<NSManagedObject>> held_[contextCount];
    std::map<int, Ref<NSManagedObjectID>> identities_;
    Ref<NSObject> token_;
    Ref<NSNotification> lastSave_;
    int next_ = 0;
    // The model:
    View stored_;
    Layer received_[contextCount]; // handed up by children
    Layer layers_[contextCount];   // its own
    std::set<int> linked_[contextCount]; // records that it has made links to since: unsaved changes of theirs, even where undone
};

} // namespace

void tryLevels(Trial& trial, Tally& tally) { Levels(trial, tally).run(); }

void judgeLevels(Tally const& tally) {
    require(tally.of("saves refused") != 0 && tally.of("merges") != 0 && tally.of("resets") != 0, "something never happened");
}

} // namespace Tessarin::campaigns
