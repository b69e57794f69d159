// Random edits of linked records, saves and merges in between, taken back and brought back at random: what a context shows must be
// what it showed then. In half of the trials others edit the same records: what they did last must stay.
#include "fuzz/campaigns/Undo.h"

#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/objectgraph/undo/UndoManager.h"
#include "fuzz/campaigns/Shelf.h"
#include "fuzz/campaigns/Trace.h"

#include <algorithm>
#include <map>
#include <set>

namespace Tessarin::campaigns {
namespace {

constexpr std::int64_t firstForeign = 1'000'000; // serial numbers of records that only others edit

Ref<NSManagedObjectModel> const& model() {
    using Type = NSAttributeType;
    static auto const shared =
        ModelBuilder()
            .entity("Town")
            .attribute("serial", Type::Integer64)
            .entity("Person")
            .attribute("serial", Type::Integer64)
            .attribute("name", Type::String)
            .attribute("weight", Type::Double)
            .toOne("boss", "Person", {.inverse = "staff"})
            .toMany("staff", "Person", {.inverse = "boss"})
            .toMany("friends", "Person", {.inverse = "friends"})
            .toOne("spouse", "Person", {.inverse = "spouse"})
            .toOne("home", "House", {.inverse = "residents"})
            .toMany("visits", "Room", {.inverse = "guests"})
            .toOne("birthplace", "Town")
            .toMany("trips", "Town", {.ordered = true})
            .entity("House")
            .attribute("serial", Type::Integer64)
            .attribute("name", Type::String)
            .toMany("residents", "Person", {.inverse = "home"})
            .toMany("rooms", "Room", {.inverse = "house", .deleteRule = NSDeleteRule::Cascade, .ordered = true})
            .entity("Cottage", {.parent = "House"})
            .attribute("built", Type::Date)
            .entity("Room")
            .attribute("serial", Type::Integer64)
            .attribute("name", Type::String)
            .toOne("house", "House", {.inverse = "rooms"})
            .toMany("guests", "Person", {.inverse = "visits", .ordered = true})
            .build();
    return shared;
}

/// By serial number: what each record shows, property by property.
using Shown = std::map<std::int64_t, std::map<std::string, std::string>>;

Objects objectsOf(Value const& value) {
    Objects result;
    auto const add = [&](Value const& each) {
        if (auto object = each.objectAs<NSManagedObject>()) result.push_back(std::move(object));
    };
    if (value.kind() == Value::Kind::Set)
        for (auto const& each : value.set()) add(each);
    else if (value.kind() == Value::Kind::List)
        for (auto const& each : value.list()) add(each);
    else
        add(value);
    return result;
}

Shown shownIn(NSManagedObjectContext& context, bool isForeign) {
    Shown shown;
    for (auto const* entity : {"Person", "House", "Room"})
        for (auto const& object : fetched(context, entity)) {
            auto const serial = integerOf(*object, "serial");
            if ((serial >= firstForeign) != isForeign) continue;
            auto& values = shown[serial];
            require(values.empty(), "record {} is there twice", serial);
            for (auto const* property : object->entity().properties()) {
                auto const value = object->valueForKey(property->name());
                auto const* relationship = property->asRelationship();
                std::vector<std::int64_t> serials;
                if (relationship)
                    for (auto const& each : objectsOf(value)) serials.push_back(integerOf(*each, "serial"));
                if (relationship && !relationship->isOrdered()) std::ranges::sort(serials);
                values[property->name()] = relationship ? fmt::format("{}", fmt::join(serials, ",")) : value.description();
            }
        }
    return shown;
}

void requireSame(Shown const& now, Shown const& then, std::string const& what) {
    for (auto const& [serial, values] : then) {
        auto const found = now.find(serial);
        require(found != now.end(), "{}: record {} is missing", what, serial);
        for (auto const& [name, value] : values)
            require(found->second.at(name) == value, "{}: {} of {} is \"{}\", was \"{}\"", what, name, serial,
                    found->second.at(name), value);
    }
    for (auto const& [serial, values] : now) require(then.contains(serial), "{}: record {} is there", what, serial);
}

class Undoing {
public:
    Undoing(Trial& trial, Tally& tally)
        : trial_(trial),
          tally_(tally),
          shelf_(trial.folder() + "/undo.db", model(), Inference::Allowed, Synchronous::Off),
          interferes_(trial.chance(0.5)) {
        worker_ = shelf_.worker();
        other_ = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
        other_->setParentContext(shelf_.root);
        for (auto const& context : {shelf_.root, shelf_.main, worker_, other_})
            context->setMergePolicy(make<NSMergePolicy>(NSMergePolicyType::MergeByPropertyStoreTrump));
        token_ = NSNotificationCenter::defaultCenter()->addObserverForName(NSManagedObjectContextDidSaveNotification, nullptr,
                                                                           nullptr, [this](auto const& note) { merge(note); });
        onQueueOf(*shelf_.main, [&] {
            for (std::int64_t serial = 1; serial <= 4; ++serial)
                shelf_.main->insertNewObject("Town")->setValueForKey(serial, "serial");
            for (auto count = trial_.random(20); count > 0; --count) edit(*shelf_.main, false);
            saveOrThrow(*shelf_.main);
            undo_ = shelf_.main->undoManager();
        });
        onQueueOf(*shelf_.root, [&] { saveOrThrow(*shelf_.root); });
        settle();
        states_.push_back(shown());
    }
    ~Undoing() {
        settle();
        NSNotificationCenter::defaultCenter()->removeObserver(*token_);
    }

    void run() {
        for (int step = 0; step < 40; ++step) {
            trace(fmt::format("{}:", step));
            act();
        }
        toTheEnds();
        requireFileAgrees();
    }

private:
    void merge(Ref<NSNotification> const& note) {
        auto const into = note->object() == other_ ? shelf_.main : note->object() == shelf_.main ? other_ : nullptr;
        if (into) into->performBlock([into, note] { into->mergeChangesFromContextDidSaveNotification(*note); });
    }
    /// What was told the contexts is there.
    void settle() {
        for (int round = 0; round < 2; ++round)
            for (auto const& context : {shelf_.main, worker_, other_, shelf_.root}) onQueueOf(*context, [] {});
    }
    Shown shown() {
        Shown result;
        onQueueOf(*shelf_.main, [&] { result = shownIn(*shelf_.main, false); });
        return result;
    }

    void act() {
        switch (trial_.random(10)) {
        case 0: return saveSomewhere();
        case 1: return takeBack(true);
        case 2: return takeBack(false);
        case 3: return interferes_ ? editElsewhere(false) : editElsewhere(true);
        case 4: return import();
        default: return step();
        }
    }

    /// What a block, or a group over several, does.
    void step() {
        auto const name = fmt::format("step {}", ++steps_);
        bool const isGroup = trial_.chance(0.2);
        trace(name);
        for (auto blocks = isGroup ? 1 + trial_.random(3) : 1; blocks > 0; --blocks) {
            onQueueOf(*shelf_.main, [&] {
                if (isGroup && !isOpen_) undo_->beginGroup(), isOpen_ = true;
                undo_->setActionName(name);
                for (auto count = 1 + trial_.random(4); count > 0; --count) {
                    edit(*shelf_.main, false);
                    if (trial_.chance(0.1)) save(*shelf_.main);
                }
                if (isOpen_ && blocks == 1) undo_->endGroup(), isOpen_ = false;
            });
        }
        noteStep(name);
    }
    void noteStep(std::string const& name) {
        auto now = shown();
        bool isStep = false;
        onQueueOf(*shelf_.main, [&] { isStep = undo_->undoActionName() == name; });
        if (interferes_) return;
        if (!isStep) return requireSame(now, states_[at_], "after " + name + ", which is none");
        states_.resize(++at_);
        states_.push_back(std::move(now));
        tally_.add("steps");
    }

    void import() {
        auto const name = fmt::format("import {}", ++steps_);
        onQueueOf(*shelf_.main, [&] { save(*shelf_.main); });
        trace(name);
        onQueueOf(*worker_, [&] {
            worker_->setUndoable(name);
            for (auto saves = 1 + trial_.random(2); saves > 0; --saves) {
                for (auto count = 1 + trial_.random(4); count > 0; --count) edit(*worker_, false);
                save(*worker_);
            }
            worker_->setUndoable({});
        });
        noteStep(name);
        // One that has taken itself back is no step any more; it was one before, and what could be redone is gone.
        if (!interferes_ && !can(false)) states_.resize(at_ + 1);
        tally_.add("imports");
    }

    void editElsewhere(bool isForeign) {
        auto const& context = isForeign && trial_.chance(0.5) ? other_ : worker_; // conflicts are for other campaigns
        Shown before, after;
        settle();
        if (!isForeign) before = shown();
        trace("elsewhere");
        isElsewhere_ = true;
        onQueueOf(*context, [&] {
            for (auto count = 1 + trial_.random(4); count > 0; --count) edit(*context, isForeign);
            save(*context);
        });
        isElsewhere_ = false;
        settle();
        tally_.add("merges");
        if (isForeign) return;
        after = shown();
        for (auto const& [serial, values] : before) {
            if (!after.contains(serial)) deletedByOthers_.insert(serial);
            for (auto const* name : {"name", "weight"}) {
                auto const found = after.find(serial);
                if (found == after.end() || !values.contains(name)) continue;
                if (found->second.at(name) != values.at(name)) writtenByOthers_[{serial, name}] = found->second.at(name);
            }
        }
    }

    bool can(bool isUndo) {
        bool result = false;
        onQueueOf(*shelf_.main, [&] { result = isUndo ? undo_->canUndo() : undo_->canRedo(); });
        return result;
    }
    void takeBack(bool isUndo) {
        bool can = false;
        auto const before = interferes_ ? shown() : Shown();
        onQueueOf(*shelf_.main, [&] {
            can = isUndo ? undo_->canUndo() : undo_->canRedo();
            trace(fmt::format("{} {}", isUndo ? "undo" : "redo", isUndo ? undo_->undoActionName() : undo_->redoActionName()));
            bool const has = isUndo ? undo_->undo() : undo_->redo();
            require(can || !has, "something was taken back that was not there");
            require(!can || has || interferes_, "nothing was taken back");
            if (!interferes_ && trial_.chance(0.3)) save(*shelf_.main);
        });
        auto const now = shown();
        tally_.add(isUndo ? "undone" : "redone", can);
        if (interferes_) return requireOthersStand(before, now);
        require(can == (isUndo ? at_ != 0 : at_ + 1 != states_.size()), "{} is {}possible", isUndo ? "undo" : "redo",
                can ? "" : "not ");
        if (can) at_ = isUndo ? at_ - 1 : at_ + 1;
        requireSame(now, states_[at_], isUndo ? "after an undo" : "after a redo");
    }

    /// What others deleted does not come back, and what they wrote last stays.
    void requireOthersStand(Shown const& before, Shown const& now) {
        for (auto const& [serial, values] : now)
            require(before.contains(serial) || !deletedByOthers_.contains(serial), "record {} was deleted by others", serial);
        for (auto const& [place, value] : writtenByOthers_) {
            auto const then = before.find(place.first), found = now.find(place.first);
            if (then == before.end() || found == now.end() || then->second.at(place.second) != value) continue;
            require(found->second.at(place.second) == value, "{} of {} is \"{}\", others wrote \"{}\"", place.second, place.first,
                    found->second.at(place.second), value);
        }
        tally_.add("stands", deletedByOthers_.size() + writtenByOthers_.size());
    }

    void toTheEnds() {
        for (bool const isUndo : {true, false, true})
            while (can(isUndo)) {
                takeBack(isUndo);
                if (trial_.chance(0.2)) saveSomewhere();
                if (!interferes_ && trial_.chance(0.1)) editElsewhere(true);
            }
    }

    void requireFileAgrees() {
        settle();
        for (auto const& context : {worker_, other_, shelf_.main, shelf_.root}) onQueueOf(*context, [&] { save(*context); });
        settle();
        auto const fresh = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
        fresh->setPersistentStoreCoordinator(shelf_.coordinator);
        for (bool const isForeign : {false, true}) {
            Shown there, here;
            onQueueOf(*fresh, [&] { there = shownIn(*fresh, isForeign); });
            onQueueOf(*shelf_.main, [&] { here = shownIn(*shelf_.main, isForeign); });
            if (!interferes_ && !isForeign) requireSame(there, states_[at_], "in the file");
            if (!interferes_) requireSame(here, there, "in the file");
        }
        Ref<NSError> error;
        for (auto const& finding : shelf_.coordinator->verify(error)) require(false, "{}", finding);
    }

    void saveSomewhere() {
        auto const& context = trial_.chance(0.7) ? shelf_.main : shelf_.root;
        onQueueOf(*context, [&] { save(*context); });
        settle();
    }
    void save(NSManagedObjectContext& context) {
        Ref<NSError> error;
        tally_.add(context.save(error) ? "saves" : "refused");
        require(interferes_ || !error, "a save fails: {}", error ? error->localizedDescription() : "");
        trace(&context == shelf_.main.get() ? "save main" : "save");
    }

    Ref<NSManagedObject> any(NSManagedObjectContext& context, char const* entity, bool isForeign) {
        auto all = fetched(context, entity);
        std::erase_if(all, [&](auto const& each) { return (integerOf(*each, "serial") >= firstForeign) != isForeign; });
        std::ranges::sort(all, {}, [](auto const& each) { return integerOf(*each, "serial"); });
        if (!all.empty() && !trial_.chance(0.1)) return all[trial_.random(all.size())];
        auto const kind = std::string_view(entity) == "House" && trial_.chance(0.3) ? "Cottage" : entity;
        auto const made = context.insertNewObject(kind);
        made->setValueForKey((isForeign ? firstForeign : 0) + ++serials_, "serial");
        trace(fmt::format("{} {} is made", kind, serials_));
        return made;
    }
    Ref<NSManagedObject> town(NSManagedObjectContext& context) {
        auto all = fetched(context, "Town");
        std::ranges::sort(all, {}, [](auto const& each) { return integerOf(*each, "serial"); });
        return all[trial_.random(all.size())];
    }

    void edit(NSManagedObjectContext& context, bool isForeign) {
        struct Link {
            char const *entity, *key, *destination;
        };
        static constexpr Link toOnes[] = {{"Person", "boss", "Person"},
                                          {"Person", "spouse", "Person"},
                                          {"Person", "home", "House"},
                                          {"Room", "house", "House"}};
        static constexpr Link toManys[] = {{"Person", "staff", "Person"}, {"Person", "friends", "Person"},
                                           {"Person", "visits", "Room"},  {"House", "residents", "Person"},
                                           {"House", "rooms", "Room"},    {"Room", "guests", "Person"}};
        static constexpr char const* entities[] = {"Person", "House", "Room"};
        auto const to = [&](char const* entity) { return any(context, entity, isForeign); };
        auto const say = [](auto const& object, char const* key, std::string const& what) {
            trace(fmt::format("{}.{} {}", integerOf(*object, "serial"), key, what));
        };
        switch (trial_.random(12)) {
        case 0:
        case 1: {
            auto const object = to(entities[trial_.random(3)]);
            auto const text = fmt::format("n{}", ++names_);
            bool const isNone = trial_.chance(0.1) && !isElsewhere_; // which is what a step may have left
            object->setValueForKey(isNone ? Value() : Value(text), "name");
            writtenByOthers_.erase({integerOf(*object, "serial"), "name"});
            return say(object, "name", text);
        }
        case 2: {
            auto const person = to("Person");
            person->setValueForKey(static_cast<double>(++names_) / 8, "weight");
            writtenByOthers_.erase({integerOf(*person, "serial"), "weight"});
            return say(person, "weight", "");
        }
        case 3: {
            auto const person = to("Person");
            person->setValueForKey(town(context), "birthplace");
            auto trips = person->mutableSetValueForKey("trips");
            auto const there = town(context);
            trips.containsObject(there) ? trips.removeObject(there) : trips.insertObject(there, 0);
            return say(person, "trips", "");
        }
        case 4:
        case 5: {
            auto const& link = toOnes[trial_.random(std::size(toOnes))];
            auto const object = to(link.entity);
            auto const destination = trial_.chance(0.25) ? nullptr : to(link.destination);
            object->setValueForKey(Value(destination), link.key);
            return say(object, link.key, destination ? std::to_string(integerOf(*destination, "serial")) : "none");
        }
        case 6:
        case 7: {
            auto const& link = toManys[trial_.random(std::size(toManys))];
            auto const object = to(link.entity), member = to(link.destination);
            auto members = object->mutableSetValueForKey(link.key);
            trial_.chance(0.3) ? members.removeObject(member) : members.addObject(member);
            return say(object, link.key, "with or without " + std::to_string(integerOf(*member, "serial")));
        }
        case 8:
        case 9: {
            auto const& link = trial_.chance(0.5) ? toManys[4] : toManys[5];
            auto const object = to(link.entity);
            auto members = object->mutableSetValueForKey(link.key);
            if (members.count() < 2) {
                auto const member = to(link.destination);
                members.insertObject(member, 0);
                return say(object, link.key, "begin with " + std::to_string(integerOf(*member, "serial")));
            }
            members.moveObject(trial_.random(members.count()), trial_.random(members.count()));
            return say(object, link.key, "moved");
        }
        case 10: {
            auto const made = context.insertNewObject("Room");
            made->setValueForKey((isForeign ? firstForeign : 0) + ++serials_, "serial");
            made->setValueForKey(to("House"), "house");
            return say(made, "house", "is new");
        }
        default: {
            auto const object = to(entities[trial_.random(3)]);
            say(object, "deleted", "");
            context.deleteObject(*object);
        }
        }
    }

    Trial& trial_;
    Tally& tally_;
    Shelf shelf_;
    bool interferes_; // others edit the same records
    Ref<NSManagedObjectContext> worker_, other_;
    Ref<NSObject> token_;
    Ref<UndoManager> undo_;
    std::vector<Shown> states_; // after each step that is kept
    std::size_t at_ = 0; // the one that stands
    int steps_ = 0;
    bool isOpen_ = false;
    bool isElsewhere_ = false; // it is others who edit
    std::int64_t serials_ = 10;
    int names_ = 0;
    std::set<std::int64_t> deletedByOthers_;
    std::map<std::pair<std::int64_t, std::string>, std::string> writtenByOthers_; // and by nobody else since
};

} // namespace

void tryUndo(Trial& trial, Tally& tally) { Undoing(trial, tally).run(); }

void judgeUndo(Tally const& tally) {
    for (auto const* what : {"steps", "imports", "merges", "undone", "redone", "stands", "saves"})
        require(tally.of(what) != 0, "no {}", what);
}

} // namespace Tessarin::campaigns
