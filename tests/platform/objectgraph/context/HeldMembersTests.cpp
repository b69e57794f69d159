// Members that a context has read long ago, while others link, move and delete the same records: once all is saved, they are those
// that a new context reads.
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "tests/support/Contexts.h"
#include "tests/support/TemporaryFolder.h"

#include <map>
#include <sstream>

namespace Tessarin::tests {
namespace {

Ref<NSManagedObjectModel> const& homesModel() {
    static auto const& shared = *new Ref<NSManagedObjectModel>(ModelBuilder()
                                                                   .entity("p")
                                                                   .attribute("name", NSAttributeType::String)
                                                                   .toOne("boss", "p", {.inverse = "staff"})
                                                                   .toMany("staff", "p", {.inverse = "boss"})
                                                                   .toMany("friends", "p", {.inverse = "friends"})
                                                                   .toMany("visits", "v", {.inverse = "guests"})
                                                                   .toMany("likes", "v") // nobody who deletes one learns of it
                                                                   .entity("v")
                                                                   .attribute("name", NSAttributeType::String)
                                                                   .toOne("house", "h", {.inverse = "rooms"})
                                                                   .toMany("guests", "p", {.inverse = "visits", .ordered = true})
                                                                   .entity("h")
                                                                   .toMany("rooms", "v", {.inverse = "house", .ordered = true})
                                                                   .build());
    return shared;
}
constexpr char const* keys[] = {"p staff", "p friends", "p visits", "p likes", "v guests", "h rooms"};

/// Two children, "a" and "b", of a main context "m" beneath the root "r"; three persons, rooms and houses that all have read.
struct Row {
    char const* fault;
    char const* steps;
    char const* there = ""; // in the end
    char const* whose = "mr"; // the contexts that show it
};
void PrintTo(Row const& row, std::ostream* out) { *out << row.fault; }

class HeldMembers : public ::testing::TestWithParam<std::tuple<char const*, Row>> {
protected:
    using Context = Ref<NSManagedObjectContext>;
    using Held = std::map<std::string, Ref<NSManagedObject>>;

    HeldMembers() {
        for (auto const& name : {"p1", "p2", "p3", "v1", "v2", "v3", "h1", "h2", "h3"})
            held_["r"][name] = inserted(*contexts_["r"], std::string(name, 1).c_str(), {});
        run("r set v1.house h1, r add v1.guests p1, r add v1.guests p2, r add p1.friends p3, r set p2.boss p1, r save");
        for (auto const& [name, context] : contexts_) {
            context->setMergePolicy(NSMergeByPropertyStoreTrumpMergePolicy());
            for (auto const& [record, object] : held_["r"]) held_[name][record] = context->objectWithID(*object->objectID());
            shown(context, held_[name]);
        }
    }

    void run(std::string const& steps) {
        std::istringstream text(steps);
        for (std::string step; std::getline(text, step, ',');) {
            std::istringstream words(step);
            std::string who, verb, what, other;
            words >> who >> verb >> what >> other;
            auto const context = contexts_.at(who);
            auto const note = verb != "save" ? nullptr
                                             : listening(context, NSManagedObjectContextDidSaveNotification,
                                                         [&](auto const& saved) { lastSave_ = saved; });
            EXPECT_TRUE(verb != "save" || saves(*context));
            context->performBlockAndWait([&] { take(*context, held_[who], verb, what, other); });
        }
    }
    void take(NSManagedObjectContext& context, Held& held, std::string const& verb, std::string const& what,
              std::string const& other) {
        auto const dot = std::min(what.find('.'), what.size());
        auto const object = what.empty() ? nullptr : held.at(what.substr(0, dot));
        auto const key = dot == what.size() ? "" : what.substr(dot + 1);
        if (verb == "wins") context.setMergePolicy(NSMergeByPropertyObjectTrumpMergePolicy());
        if (verb == "merge") context.mergeChangesFromContextDidSaveNotification(*lastSave_);
        if (verb == "delete") context.deleteObject(*object);
        if (verb == "forget") context.refreshObject(*object, false);
        if (verb == "name") object->setValueForKey(other, "name");
        if (verb == "set") object->setValueForKey(other.empty() ? Value() : Value(held.at(other)), key);
        if (verb == "add") object->mutableSetValueForKey(key).addObject(held.at(other));
        if (verb == "remove") object->mutableSetValueForKey(key).removeObject(held.at(other));
        if (verb == "turn") object->mutableSetValueForKey(key).moveObject(0, 1);
        if (verb == "has") {
            auto const now = context.objectWithID(*object->objectID());
            EXPECT_EQ(now->mutableSetValueForKey(key).allObjects(), std::vector{held.at(other)});
        }
        if (verb == "read") object->mutableSetValueForKey(key).count();
    }
    static std::string shown(Context const& context, Held const& held) {
        std::string text;
        context->performBlockAndWait([&] {
            for (auto const& [name, object] : held)
                for (std::string const each : keys) {
                    if (each[0] != name[0] || object->isDeleted()) continue;
                    std::string members;
                    for (auto const& [other, member] : held)
                        if (object->mutableSetValueForKey(each.substr(2)).containsObject(member)) members += " " + other;
                    auto const count = object->mutableSetValueForKey(each.substr(2)).allObjects().size();
                    if (count != 0)
                        text += name + each.substr(1) + members + (count * 3 == members.size() ? "\n" : " and more\n");
                }
        });
        return text;
    }

    TemporaryFolder const folder_;
    Context const root_ =
        contextOver(coordinatorOver(homesModel(), std::get<0>(GetParam()), NSURL::fileURLWithPath(folder_.path("homes.db"))));
    Context const main_ = childOf(root_);
    std::map<std::string, Context> contexts_{{"r", root_}, {"m", main_}, {"a", childOf(main_)}, {"b", childOf(main_)}};
    std::map<std::string, Held> held_;
    Ref<NSNotification> lastSave_;
};
constexpr Row rows[] = {
    {"linked by who does not know of a deletion",
     "a delete v2, a save, m save, r save, b add p1.visits v2, b save, m read p1.visits"},
    {"the same after a conflict", "a delete p1, a save, b name p1 x, b add v2.guests p1, b save, m read v2.guests"},
    {"an order brings back who has left", "b turn v1.guests, a remove v1.guests p1, a save, b save, m read v1.guests",
     "v1 guests p2\n"},
    {"an order leaves out who has come", "b turn v1.guests, a add v1.guests p3, a save, b save, m read v1.guests",
     "v1 guests p1 p2 p3\n"},
    {"deleted by who does not know of a link", "m add p1.friends p2, m save, r save, m forget p2, a delete p2, a save"},
    {"deleted by who cannot know of a link", "m add p1.likes v1, m save, r save, a delete v1, a save"},
    {"deleted here", "m add p1.likes v1, m save, r save, m delete v1"},
    {"linked by both, and taken back", "m add p1.friends p2, a add p1.friends p2, a save, m remove p1.friends p2",
     "p1 friends p3\n"},
    {"cut by both, and linked again", "m remove p1.friends p3, a remove p1.friends p3, a save, m add p1.friends p3",
     "p1 friends p3\n"},
    {"taken back by both, and linked again",
     "m add p1.friends p2, a add p1.friends p2, a save, m remove p1.friends p2, a remove p1.friends p2, a save, m add p1.friends p2",
     "p1 friends p2 p3\n"},
    {"linked by both, and forgotten", "m add p1.friends p2, a add p1.friends p2, a save, m forget p1", "p2 friends p1\n"},
    {"back at its place", "m set v1.house h2, a add h1.rooms v2, a save, m forget h1, m set v1.house h1", "h1 rooms v1 v2\n"},
    {"moved by both, and forgotten", "b wins, a set v1.house h2, a save, m read h2.rooms, m forget v1, b set v1.house h3, b save",
     "h3 rooms v1\n"},
    {"changed above", "r add p1.friends p2, r set v1.house h2, r remove v1.guests p1, r save", "h2 rooms v1\n"},
    {"set back to what has changed above", "m set v1.house h2, r set v1.house h3, r save, m set v1.house h1", "h3 rooms v1\n"},
    {"read as an ancestor took it back", "m set v1.house h2, a forget h1, a read h1.rooms, m set v1.house h1", "h1 rooms v1\n",
     "mra"},
    {"deleted by two, and kept", "a delete p1, b delete p1, a save, b save, r name p1 x, r save", "p3 friends p1\n", ""},
    {"deleted by two, linked between, and kept",
     "b delete p1, a name p1 y, a save, r add p1.friends p2, r name p1 x, r save, a delete p1, a save, b merge, m save, b save",
     "p2 friends p1\n", ""},
    {"linked by both, and cut by one who knows of the other at one end",
     "m add p1.friends p2, r add p3.friends p2, r save, m merge, r add p1.friends p2, r read p1.friends, m remove p1.friends p2, r save",
     "p1 friends p3\n"},
    {"not a member as an ancestor shows it that has not heard of a save",
     "m name v1 x, m read h2.rooms, r set v1.house h2, r save, a read h2.rooms, m save", "h2 rooms v1\n", "mra"},
    {"deleted by who has not handed it on", "a delete p3, a save, r set p2.boss p3, r merge, r has p3.staff p2"},
    {"moved by others, and its change forgotten", "a set p2.boss, m set p2.boss p3, m save, a merge, a forget p1, a save",
     "p3 staff p2\n", "mra"},
};
INSTANTIATE_TEST_SUITE_P(Stores, HeldMembers,
                         ::testing::Combine(::testing::Values("InMemory", "SQLite"), ::testing::ValuesIn(rows)));

} // namespace

TEST_P(HeldMembers, AreThoseThatANewContextReads) {
    auto const& row = std::get<1>(GetParam());
    run(row.steps);
    run("m save,r save");
    auto const fresh = childOf(root_);
    Held held;
    for (auto const& [name, object] : held_["r"]) held[name] = fresh->objectWithID(*object->objectID());
    auto const there = shown(fresh, held);
    EXPECT_NE(there.find(row.there), std::string::npos) << there;
    for (char const who : std::string(row.whose))
        EXPECT_EQ(shown(contexts_[std::string(1, who)], held_[std::string(1, who)]), there) << who;
}

} // namespace Tessarin::tests
