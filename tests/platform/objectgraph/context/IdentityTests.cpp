// Temporary and permanent keys: who knows a record by which, and what a file may not say of them.
#include "Library.h"
#include "Tessarin/platform/sqlite/Connection.h"

using namespace Tessarin;
using namespace Tessarin::tests;

namespace {

using Identity = LibraryTest;
INSTANTIATE_TEST_SUITE_P(Stores, Identity, bothStores, storeName);

} // namespace

TEST_P(Identity, APromotedObjectIsRegisteredOnceAndLeavesWhole) {
    auto const worker = library.worker();
    for (auto const* name : {"A", "B", "C"}) inserted(*root, "Author", {{"name", name}});
    root->processPendingChanges();
    auto seen = fetched(*worker, "Author");
    ASSERT_TRUE(saves(*root)); // gives permanent keys to what the worker knows by temporary ones
    worker->processPendingChanges();
    EXPECT_EQ(worker->registeredObjects().size(), 3u);
    seen.clear();
    EXPECT_TRUE(worker->registeredObjects().empty());
    worker->refreshAllObjects();
}

TEST_P(Identity, LinksOutliveTheObjectsAndTheKeysTheyWereMadeWith) {
    auto const worker = library.worker();
    auto const author = inserted(*root, "Author", {{"name", "A"}});
    auto const first = inserted(*root, "Book", {{"title", "1"}, {"author", Value(author)}});
    root->processPendingChanges();

    auto seen = fetched(*worker, "Author").front();
    EXPECT_EQ(members(*seen, "books"), "1") << "by temporary keys";
    ASSERT_TRUE(saves(*root));
    inserted(*worker, "Tag", {{"name", "other"}});
    ASSERT_TRUE(saves(*worker));
    EXPECT_EQ(members(*seen, "books"), "1") << "a save of something else has forgotten them";
    EXPECT_EQ(toOne(fetched(*worker, "Book").front(), "author"), seen);
    seen->mutableSetValueForKey("books").removeObject(fetched(*worker, "Book").front());
    EXPECT_EQ(members(*seen, "books"), "");
    ASSERT_TRUE(saves(*worker));
    root->processPendingChanges();
    EXPECT_EQ(members(*author, "books"), "");
}

TEST_P(Identity, EditsAfterASaveThatFailedWithKeysGivenAreKept) {
    // The store refuses a record that a policy has to decide: by then keys are given.
    auto const contested = inserted(*root, "Book", {{"title", "contested"}});
    ASSERT_TRUE(saves(*root));
    auto const worker = library.worker(), sibling = library.worker();
    auto const mine = fetched(*worker, "Book").front(), theirs = fetched(*sibling, "Book").front();
    theirs->setValueForKey("theirs", "title");
    ASSERT_TRUE(saves(*sibling));
    mine->setValueForKey("mine", "title");
    auto const author = inserted(*worker, "Author", {{"name", "A"}});
    auto const kept = inserted(*worker, "Book", {{"title", "kept"}, {"author", Value(author)}});
    auto const dropped = inserted(*worker, "Book", {{"title", "dropped"}, {"author", Value(author)}});
    EXPECT_FALSE(worker->save(error));
    EXPECT_FALSE(author->objectID()->isTemporaryID());
    EXPECT_EQ(worker->registeredObjects().size(), 4u);
    EXPECT_TRUE(author->mutableSetValueForKey("books").containsObject(kept));
    author->mutableSetValueForKey("books").addObject(kept);
    author->mutableSetValueForKey("books").removeObject(dropped);
    auto const late = inserted(*worker, "Book", {{"title", "late"}, {"author", Value(author)}});
    EXPECT_EQ(members(*author, "books"), "kept,late");
    worker->setMergePolicy(NSMergeByPropertyObjectTrumpMergePolicy());
    ASSERT_TRUE(saves(*worker));
    EXPECT_EQ(members(*fetched(*root, "Author").front(), "books"), "kept,late");
    ASSERT_TRUE(saves(*root));
    EXPECT_FALSE(toOne(dropped, "author"));
}

TEST_P(Identity, AURIMustNameTheRecordsOwnEntity) {
    auto const novel = inserted(*root, "Novel", {{"title", "Emma"}});
    ASSERT_TRUE(saves(*root));
    auto const uri = novel->objectID()->description();
    auto const idFor = [&](Library& library, std::string text) {
        return library.coordinator->managedObjectIDForURIRepresentation(*NSURL::URLWithString(text));
    };
    auto const with = [&](char const* entity) {
        auto text = uri;
        return text.replace(text.find("Novel"), 5, entity);
    };
    EXPECT_EQ(idFor(library, with("Book")), novel->objectID()) << "an ancestor";
    EXPECT_FALSE(idFor(library, with("Author")));
    if (std::string_view(GetParam()) != "SQLite") return;
    Library later(GetParam(), &library); // where nobody knows the record yet
    EXPECT_FALSE(idFor(later, with("Tag")));
    auto const id = idFor(later, with("Book"));
    ASSERT_TRUE(id);
    EXPECT_EQ(id->description(), uri);
    EXPECT_EQ(later.root->objectWithID(*id)->objectID(), id);
}

TEST(Identity, AURIEscapesTheNameOfTheEntity) {
    for (auto const* name : {"Größe 1/2", "a%20b", "a b", "A.B"}) {
        auto const coordinator = coordinatorOver(ModelBuilder().entity(name).attribute("title", NSAttributeType::String).build());
        auto const root = contextOver(coordinator);
        root->performBlockAndWait([&] {
            auto const id = root->insertNewObject(name)->objectID();
            Ref<NSError> error;
            EXPECT_TRUE(root->save(error));
            EXPECT_EQ(coordinator->managedObjectIDForURIRepresentation(id->URIRepresentation()), id) << name;
        });
    }
}

TEST(IdentityInAFile, KeysAndVersionsOutOfRangeAreRefusedWithWords) {
    struct {
        char const *what, *statement, *words;
    } static const rows[] = {
        {"no keys left", "UPDATE tessarin_store SET value = 9223372036854775807 WHERE key = 'nextKey'", "leaves none"},
        {"wide version", "UPDATE Book SET version = version + 4294967296", "the version 429496729"},
        {"negative version", "UPDATE Book SET version = -1", "the version -1"},
        {"temporary key", "UPDATE Book SET id = -7", "the key -7"},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        Library library("SQLite");
        inserted(*library.root, "Book", {{"title", "saved"}});
        ASSERT_TRUE(saves(*library.root));
        SQLite::Connection(library.file()).execute(row.statement);
        Library const later("SQLite", &library);
        Ref<NSError> error;
        auto const books = later.root->executeFetchRequest(*make<NSFetchRequest>("Book"), error);
        if (!error) {
            for (int at = 0; at < 100 && !error; ++at) inserted(*later.root, "Book", {});
            books.front()->setValueForKey("changed", "title");
            EXPECT_FALSE(later.root->save(error));
        }
        ASSERT_TRUE(error);
        EXPECT_NE(error->localizedDescription().find(row.words), std::string::npos) << error->localizedDescription();
    }
}
