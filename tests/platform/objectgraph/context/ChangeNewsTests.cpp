// What a context tells those who observe its objects.
#include "Library.h"
#include "Tessarin/platform/queues/Dispatch.h"

using namespace Tessarin;
using namespace Tessarin::tests;

namespace {

/// One turn of the main queue.
void turn(FunctionRef<void()> work) { dispatch_sync(dispatch_get_main_queue(), work); }
/// The turns that are due have been.
void turnsEnd() {
    turn([] {});
}

/// "inserted Book, updated Tag", in the order of the keys.
std::string told(NSNotification const& note) {
    std::string text;
    for (char const* key :
         {NSInsertedObjectsKey, NSUpdatedObjectsKey, NSDeletedObjectsKey, NSRefreshedObjectsKey, NSInvalidatedObjectsKey})
        for (auto const& object : note.userInfo().dictionary()[key].set())
            text += (text.empty() ? "" : ", ") + std::string(key) + " " + object.objectAs<NSManagedObject>()->entity().name();
    return text;
}

class ChangeNews : public ::testing::Test {
protected:
    void SetUp() override { main->setParentContext(library.root); }

    void expect(char const* when, std::string const& what) {
        EXPECT_EQ(heard, what) << when;
        heard.clear();
    }

    Library library{"SQLite"};
    Ref<NSManagedObjectContext> main = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::MainQueue);
    std::string heard; // each in brackets
    std::shared_ptr<void> listener = listening(main, NSManagedObjectContextObjectsDidChangeNotification,
                                               [this](auto const& note) { heard += "[" + told(*note) + "]"; });
};

} // namespace

TEST_F(ChangeNews, EachAnnouncementSaysWhatHappenedSinceTheLast) {
    Ref<NSManagedObject> tag;
    turn([&] {
        tag = main->insertNewObject("Tag");
        tag->setValueForKey("b", "name");
        expect("in the middle of a turn", "");
    });
    turnsEnd();
    expect("at the end of the turn", "[inserted Tag]");

    main->performBlockAndWait([&] { tag->setValueForKey("c", "name"); });
    expect("a block that ran at once", "[updated Tag]");
    main->performBlockAndWait([&] { main->deleteObject(*main->insertNewObject("Book")); });
    expect("made and deleted in between", "[]");
    turn([&] { EXPECT_TRUE(saves(*main)); });
    turnsEnd();
    expect("a save changes nothing", "");

    auto const child = childOf(main);
    child->performBlockAndWait([&] {
        child->objectWithID(*tag->objectID())->setValueForKey("d", "name");
        inserted(*child, "Book", {});
        ASSERT_TRUE(saves(*child));
    });
    main->performBlockAndWait([] {});
    expect("a child's save", "[inserted Book, updated Tag]");

    turn([&] { EXPECT_TRUE(saves(*main)); });
    auto const merging = listening(library.root, NSManagedObjectContextDidSaveNotification, [this](auto const& note) {
        turn([&] { main->mergeChangesFromContextDidSaveNotification(*note); });
    });
    library.root->performBlockAndWait([&] {
        library.root->objectWithID(*tag->objectID())->setValueForKey("e", "name");
        inserted(*library.root, "Author", {{"name", "x"}});
        ASSERT_TRUE(saves(*library.root));
    });
    EXPECT_NE(heard.find("inserted Author"), std::string::npos) << heard;
    EXPECT_NE(heard.find("refreshed Tag"), std::string::npos) << heard;
    turn([&] { EXPECT_EQ(tag->valueForKey("name"), Value("e")); });
    heard.clear();

    main->performBlockAndWait([&] { main->refreshObject(*tag, true); });
    expect("read again", "[refreshed Tag]");
    main->performBlockAndWait([&] { main->deleteObject(*tag); });
    expect("deleted", "[deleted Tag]");
    main->performBlockAndWait([&] { main->rollback(); });
    expect("taken back", "[refreshed Tag]");
    listener = nullptr;
    turn([&] { tag->setValueForKey("f", "name"); });
    turnsEnd();
    expect("nobody listens", "");
}
