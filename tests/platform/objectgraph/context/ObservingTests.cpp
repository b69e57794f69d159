// Values of one object, observed.
#include "Library.h"

using namespace Tessarin;
using namespace Tessarin::tests;

namespace {

Attribute<std::string> const titleOfBook{"title"};
Attribute<std::optional<std::int16_t>> const yearOfBook{"year"};

} // namespace

TEST(Observing, TellsOnceATurnWhatIsAnotherValueWhoeverChangedIt) {
    Library const library("InMemory");
    std::string heard;
    auto const expect = [&](char const* when, std::string const& what) { EXPECT_EQ(std::exchange(heard, ""), what) << when; };
    auto const book = inserted(*library.root, "Book", {{"title", "Emma"}, {"year", 1815}});
    ScopedConnection title, all;
    library.root->performBlockAndWait([&] {
        title = book->observe(titleOfBook,
                              [&](std::string const& before, std::string const& now) { heard += before + ">" + now + ";"; });
        all = book->observe({"year", "author"}, [&](std::span<ValueChange const> changes) {
            for (auto const& each : changes)
                heard +=
                    each.key + " " + each.before.description() + ">" + (each.now.object() ? "one" : each.now.description()) + ";";
        });
        book->setValueForKey("Sense", "title");
        book->setValueForKey("Sensibility", "title");
        Ref<NSError> error;
        library.root->executeFetchRequest(*make<NSFetchRequest>("Book"), error);
        expect("in the middle of a turn", "");
    });
    expect("after it", "Emma>Sensibility;");
    library.root->performBlockAndWait([&] {
        book->setValueForKey("Emma", "title");
        book->setValueForKey("Sensibility", "title");
    });
    expect("back where it was", "");
    ASSERT_TRUE(saves(*library.root));
    expect("a save changes no value", "");

    auto const worker = library.worker();
    worker->performBlockAndWait([&] {
        auto const here = worker->objectWithID(*book->objectID());
        here->setValueForKey(1816, "year");
        here->setValueForKey(Value(worker->insertNewObject("Author")), "author");
        here->valueForKey("author").objectAs<NSManagedObject>()->setValueForKey("Jane", "name");
    });
    ASSERT_TRUE(saves(*worker));
    library.root->performBlockAndWait([] {}); // what the save woke has run
    expect("a child's save", "year 1815>1816;author nil>one;");

    title.end();
    change(*book, "Persuasion", "title");
    expect("after its end", "");
    library.root->performBlockAndWait([&] { library.root->deleteObject(*book); });
    expect("a deletion", "");
}

TEST(Observing, AnObserverMayChangeWhatItObserves) {
    Library const library("InMemory");
    auto const book = inserted(*library.root, "Book", {{"year", 1}});
    std::vector<std::int16_t> heard;
    ScopedConnection connection;
    library.root->performBlockAndWait([&] {
        connection = book->observe(yearOfBook, [&](std::optional<std::int16_t> before, std::optional<std::int16_t> now) {
            heard.push_back(*before);
            if (*now < 4) book->set(yearOfBook, std::optional<std::int16_t>(std::int16_t(*now + 1)));
        });
        book->set(yearOfBook, std::optional<std::int16_t>(std::int16_t{2}));
    });
    for (int turns = 0; turns < 4; ++turns) library.root->performBlockAndWait([] {});
    EXPECT_EQ(heard, (std::vector<std::int16_t>{1, 2, 3}));
}

TEST(OrderedRelationship, MembersAreInsertedAndMovedAmongTheOthers) {
    Library const library("SQLite");
    auto const book = inserted(*library.root, "Book", {});
    auto const worker = library.worker();
    auto const order = [&](NSManagedObject& of) { return members(of, "chapters"); };
    library.root->performBlockAndWait([&] {
        auto chapters = book->mutableSetValueForKey("chapters");
        for (auto const* title : {"b", "d", "a"}) {
            auto const chapter = library.root->insertNewObject("Chapter");
            chapter->setValueForKey(title, "title");
            chapters.insertObject(chapter, std::string_view(title) == "a" ? 0 : chapters.count());
        }
        auto const c = library.root->insertNewObject("Chapter");
        c->setValueForKey("c", "title");
        chapters.insertObject(c, 2);
    });
    EXPECT_EQ(order(*book), "a,b,c,d");
    ASSERT_TRUE(saves(*library.root));
    Ref<NSManagedObject> below;
    worker->performBlockAndWait([&] {
        below = worker->objectWithID(*book->objectID());
        auto chapters = below->mutableSetValueForKey("chapters");
        chapters.moveObject(0, 3);
        chapters.insertObject(chapters.allObjects()[2], 0); // a member moves there
    });
    EXPECT_EQ(order(*below), "d,b,c,a");
    ASSERT_TRUE(saves(*worker));
    EXPECT_EQ(order(*book), "d,b,c,a");
    ASSERT_TRUE(saves(*library.root));
    Library const later("SQLite", &library);
    EXPECT_EQ(order(*fetched(*later.root, "Book").front()), "d,b,c,a");
}
