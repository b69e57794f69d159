#include "StoreFixture.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStoreCoordinator.h"
#include "Tessarin/platform/sqlite/Connection.h"

namespace Tessarin::tests {
namespace {

using Keys = std::vector<RecordKey>;

/// 8,000 books by ten authors, every fourth with two tags in an order that is not that of their keys.
class DamagedFile : public testing::Test {
protected:
    static constexpr RecordKey count = 8000;

    void SetUp() override {
        OpenStore open(file, libraryModel().build());
        author = open.store->reserveKeys(10, open.error);
        tag = open.store->reserveKeys(2, open.error);
        book = open.store->reserveKeys(count, open.error);
        std::vector<RecordChange> changes;
        for (RecordKey key = author; key < author + 10; ++key) changes.push_back(open.insertion("Author", key, {{"name", "A"}}));
        for (RecordKey key = tag; key < tag + 2; ++key) changes.push_back(open.insertion("Tag", key, {{"name", "T"}}));
        for (RecordKey key = book; key < book + count; ++key) {
            changes.push_back(open.insertion(
                "Book", key, {{"code", "code " + std::to_string(key)}, {"year", key}, {"author", author + key % 10}}));
            if (key % 4 == 0) changes.back().relationships = {open.links("Book", "tags", {tag, tag + 1}, {}, Keys{tag + 1, tag})};
        }
        ASSERT_FALSE(open.save(std::move(changes)));
    }
    /// The `at`th page of a table or index on its way through the file, of kind "leaf" or "internal".
    std::int64_t page(std::string const& name, std::string const& kind, int at = 0) const {
        return SQLite::Connection(file.path())
            .integer("SELECT pageno FROM dbstat WHERE name = '" + name + "' AND pagetype = '" + kind +
                     "' ORDER BY path LIMIT 1 OFFSET " + std::to_string(at));
    }
    void blank(std::int64_t page) const {
        ASSERT_GT(page, 1);
        std::fstream stream(file.path(), std::ios::in | std::ios::out | std::ios::binary);
        stream.seekp((page - 1) * 4096);
        stream << std::string(4096, '\0');
    }
    std::vector<std::string> findings(NSURL const& url, Ref<NSManagedObjectModel> model = libraryModel().build()) const {
        auto const coordinator = make<NSPersistentStoreCoordinator>(std::move(model));
        Ref<NSError> error;
        Dictionary const options{{NSInferMappingModelAutomaticallyOption, true}};
        EXPECT_TRUE(coordinator->addPersistentStoreWithType(NSSQLiteStoreType, {}, url, options, error));
        auto found = coordinator->verify(error);
        EXPECT_FALSE(error);
        return found;
    }
    static std::string joined(std::vector<std::string> const& sentences) {
        std::string text;
        for (auto const& sentence : sentences) text += sentence + "\n";
        return text;
    }

    TemporaryFolder folder;
    NSURL const file = folder.url("a.db");
    RecordKey author = 0, tag = 0, book = 0;
};

TEST_F(DamagedFile, NearlyAllOfItIsSalvaged) {
    auto const sound = folder.read("a.db");
    struct Row {
        char const* what;
        std::int64_t page;
        std::size_t missingBooks, mostMissing; // at least and at most
        std::size_t cutLinks, lostPlaces;      // exactly where no book is missing; at least
    };
    Row const table[] = {{"records", page("Book", "leaf", 40), 1, 200, 0, 0},
                         {"the way to all records", page("Book", "internal"), 0, 0, 0, 0},
                         {"links", page("Book_tags", "leaf", 3), 0, 0, 0, 1},
                         {"an index", page("Book.unique.code", "leaf", 3), 0, 0, 0, 0},
                         {"all authors", page("Author", "leaf"), 0, 0, count, 0}};
    auto const coordinator = make<NSPersistentStoreCoordinator>(libraryModel().build());
    for (auto const& [what, page, missing, mostMissing, cutLinks, lostPlaces] : table) {
        SCOPED_TRACE(what);
        folder.write("a.db", sound);
        blank(page);
        auto const damaged = folder.read("a.db");
        auto const fresh = folder.url(std::string(what) + ".db");
        Ref<NSError> error;
        auto const report = coordinator->salvageStoreAtURL(file, fresh, error);
        ASSERT_TRUE(report) << error->description();
        EXPECT_EQ(folder.read("a.db"), damaged);
        EXPECT_FALSE(coordinator->salvageStoreAtURL(file, fresh, error)) << "wrote over a file";

        auto const& books = report->entities[1];
        EXPECT_EQ(books.saved + books.missing, std::size_t{count}) << joined(report->sentences());
        EXPECT_GE(books.missing, missing);
        EXPECT_LE(books.missing, mostMissing);
        EXPECT_FALSE(books.mayMissMore);
        EXPECT_TRUE(missing != 0 || books.cutLinks == cutLinks) << books.cutLinks;
        EXPECT_GE(report->lostPlaces, lostPlaces);
        EXPECT_EQ(report->isComplete(), missing + cutLinks + lostPlaces == 0) << joined(report->sentences());

        OpenStore open(fresh, libraryModel().build());
        ASSERT_TRUE(open.store) << open.error->description();
        EXPECT_EQ(open.fetch("Book").size(), books.saved);
        EXPECT_EQ(open.value(open.read("Book", book + count - 1), "year"), Value(book + count - 1));
        auto const ordered = book + 3996 - book % 4;
        EXPECT_EQ(open.members("Book", "tags", ordered), (Keys{tag + 1, tag}));
        EXPECT_GE(open.newKey(), book + count);
        open.store.reset();
        auto const found = findings(fresh);
        EXPECT_EQ(found.size(), lostPlaces == 0 ? 0U : 1U) << joined(found);
    }
}

// No more is looked at, lest opening a large file take long.
TEST_F(DamagedFile, AtBothEndsOfATableItIsRefused) {
    auto const sound = folder.read("a.db");
    auto const last =
        SQLite::Connection(file.path()).integer("SELECT max(pageno) FROM dbstat WHERE name = 'Book' AND pagetype = 'leaf'");
    std::tuple<char const*, std::int64_t, bool> const table[] = {
        {"first", page("Book", "leaf"), false}, {"inside", page("Book", "leaf", 40), true}, {"last", last, false}};
    for (auto const& [what, page, opens] : table) {
        folder.write("a.db", sound);
        blank(page);
        EXPECT_EQ(OpenStore(file, libraryModel().build()).store != nullptr, opens) << what;
    }
}

TEST_F(DamagedFile, AFetchAndVerifyNameWhatIsDamaged) {
    EXPECT_EQ(joined(findings(file)), "");
    blank(page("Book", "leaf", 40));
    OpenStore open(file, libraryModel().build());
    ASSERT_TRUE(open.store) << open.error->description();
    StoreAnswer answer;
    auto const error = open.store->fetch({.entity = &open.entity("Book")}, answer);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->localizedDescription(), "The store is damaged: the table of Book cannot be read.");
    EXPECT_EQ(open.fetch("Author").size(), 10U);
    EXPECT_NE(joined(findings(file)).find("The file is damaged"), std::string::npos);
}

TEST_F(DamagedFile, VerifySaysWhatDoesNotFit) {
    auto const sound = folder.read("a.db");
    std::pair<char const*, char const*> const table[] = {
        {"UPDATE Book SET author = 999999 WHERE year % 1000 = 0", "Book.author: 8 links lead to a record that is not there."},
        {"INSERT INTO Book_tags VALUES (1, 999999, 1)", "Book.tags: 1 links lead to a record that is not there."},
        {"UPDATE Book_tags SET position = NULL WHERE owner % 400 = 0 AND member % 2 = 0", "members have no place in the order."},
        {"INSERT INTO Tag_friends SELECT min(id), max(id) FROM Tag", "Tag.friends: 1 links do not agree with their inverse."},
        {"UPDATE Book SET version = 0 WHERE year % 4000 = 0", "Book: 2 records have a version that none can have."},
        {"UPDATE tessarin_store SET value = 7 WHERE key = 'nextKey'", "The next key, 7, is not behind the largest, "},
        {"DELETE FROM tessarin_metadata WHERE key = 'NSStoreModelVersionHashes'", "The hashes of the entities"},
        {"DROP INDEX \"Book.author\"", "The index \"Book.author\" is missing."}};
    for (auto const& [sql, sentence] : table) {
        folder.write("a.db", sound);
        SQLite::Connection(file.path()).execute(sql);
        auto const before = folder.read("a.db");
        auto const found = findings(file);
        EXPECT_NE(joined(found).find(sentence), std::string::npos) << sql << ": " << joined(found);
        EXPECT_EQ(found.size(), 1U) << joined(found);
        EXPECT_EQ(folder.read("a.db"), before) << sql;
    }
}

TEST_F(DamagedFile, VerifyIsContentWithAnOrderThatIsNew) {
    auto definition = libraryModel().definition();
    for (auto& entity : definition.entities)
        for (auto& relationship : entity.relationships)
            if (relationship.name == "books") relationship.options.ordered = true;
    EXPECT_EQ(joined(findings(file, NSManagedObjectModel::modelWithDefinition(std::move(definition)))), "");
}

} // namespace
} // namespace Tessarin::tests
