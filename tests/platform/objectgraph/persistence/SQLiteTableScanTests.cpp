#include "StoreFixture.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSharedScanPrivate.h"

#include <atomic>
#include <set>
#include <thread>

namespace Tessarin::tests {
namespace {

/// Few tags, whose keys lie so far apart that a fetch of all takes their table for a long one.
class TagsFarApart : public testing::Test {
protected:
    static constexpr RecordKey count = 600, distance = 50;

    TagsFarApart() : here(folder.url("a.db"), libraryModel().build()), there(folder.url("a.db"), libraryModel().build()) {
        first = here.store->reserveKeys(count * distance, here.error);
        std::vector<RecordChange> changes;
        for (RecordKey key = first; key < first + count * distance; key += distance)
            changes.push_back(here.insertion("Tag", key, {{"name", "0"}}));
        EXPECT_FALSE(here.save(std::move(changes)));
    }

    /// Every tag's name becomes this, in one save of another opening of the file.
    void rename(std::string const& name) {
        std::vector<RecordChange> changes;
        for (auto const& row : there.fetch("Tag")) changes.push_back(there.update(row, {{"name", name}}));
        ASSERT_FALSE(there.save(std::move(changes)));
    }

    TemporaryFolder folder;
    OpenStore here, there;
    RecordKey first = 0;
};

TEST_F(TagsFarApart, ARepeatedScanSeesWhatAnybodySavedMeanwhile) {
    std::vector<RecordKey> keys;
    for (RecordKey key = first; key < first + count * distance; key += distance) keys.push_back(key);
    EXPECT_EQ(keysOf(here.fetch("Tag")), keys);
    EXPECT_EQ(keysOf(here.fetch("Tag")), keys);

    auto const ours = here.fetch("Tag");
    auto const last = keys.back();
    ASSERT_FALSE(here.save({here.deletion(ours[7]), here.update(ours[8], {{"name", "ours"}})}));
    ASSERT_FALSE(here.save({here.insertion("Tag", first + 1, {}), here.insertion("Tag", last + 1, {}), here.deletion(ours[30]),
                            here.insertion("Author", here.newKey(), {})}));
    for (auto const at : {30, 7}) keys.erase(keys.begin() + at);
    keys.insert(keys.begin() + 1, first + 1);
    keys.push_back(last + 1);
    auto found = here.fetch("Tag");
    EXPECT_EQ(keysOf(found), keys);
    EXPECT_EQ(here.value(found[8], "name"), Value("ours"));
    ASSERT_FALSE(here.save({here.deletion(found.back()), here.deletion(found[1])}));
    keys.pop_back();
    keys.erase(keys.begin() + 1);
    EXPECT_EQ(keysOf(here.fetch("Tag")), keys);

    auto const theirs = there.fetch("Tag");
    ASSERT_FALSE(there.save({there.deletion(theirs[0]), there.update(theirs[1], {{"name", "theirs"}})}));
    keys.erase(keys.begin());
    found = here.fetch("Tag");
    EXPECT_EQ(keysOf(found), keys);
    EXPECT_EQ(here.value(found[0], "name"), Value("theirs"));
}

TEST_F(TagsFarApart, AScanByTwoThreadsSeesOneStateOfTheFile) {
    std::atomic<bool> isRenaming{true};
    std::thread writer([&] {
        for (int round = 1; round <= 40; ++round) rename(std::to_string(round));
        isRenaming = false;
    });
    std::string last = "0";
    do {
        OpenStore fresh(folder.url("a.db"), libraryModel().build()); // has no rows at hand
        std::set<std::string> names;
        for (auto const& row : fresh.fetch("Tag")) names.insert(fresh.value(row, "name").description());
        EXPECT_EQ(names.size(), 1U);
        EXPECT_LE(std::stoi(last), std::stoi(*names.begin()));
        last = *names.begin();
    } while (isRenaming);
    writer.join();
    EXPECT_EQ(here.value(here.fetch("Tag").back(), "name"), Value("40"));
}

// What another tool wrote may be of a kind that the library never writes: SQLite converts it.
TEST_F(TagsFarApart, AScanLeavesToSQLiteWhatIsOdd) {
    for (auto const* sql :
         {"UPDATE Tag SET name = x'414243' WHERE id % 100 = 0", "UPDATE Tag SET version = '7' WHERE id % 300 = 0",
          "ALTER TABLE Tag ADD COLUMN other INTEGER DEFAULT 5"}) {
        SQLite::Connection(folder.path("a.db")).execute(sql);
        OpenStore fresh(folder.url("a.db"), libraryModel().build());
        auto const rows = fresh.fetch("Tag");
        ASSERT_EQ(rows.size(), 600U) << sql;
        for (auto const& row : rows)
            EXPECT_EQ(fresh.value(row, "name"), Value(row->key() % 100 == 0 ? "ABC" : "0")) << sql << ", " << row->key();
    }
}

TEST_F(TagsFarApart, AHelperThatSeesAnotherStateReadsNothing) {
    SQLiteSchema const schema(*here.space, {1, 2, 3});
    auto const readers = std::make_shared<SQLiteReaderPool>(schema, folder.path("a.db"), SQLite::ConnectionOptions{});
    auto const reader = readers->lease();
    SQLiteReader::Scanned const tags{&here.entity("Tag"), true};
    auto const span = reader->spanOf({.entity = tags.entity});
    ASSERT_TRUE(span);
    SQLiteSharedScan scan(here.space, tags, *span, reader->seenState().value());
    rename("new"); // before the helper comes
    scan.help(*readers);
    std::vector<RowRef> rows;
    KeptRows kept;
    scan.read(*reader, rows, kept);
    std::set<std::string> names;
    for (auto const& row : rows) names.insert(here.value(row, "name").description());
    EXPECT_EQ(rows.size(), 600U);
    EXPECT_EQ(names, std::set<std::string>{"0"});
}

TEST(SQLiteTableScan, SharesLeaveNoKeyBetweenThem) {
    static constexpr RecordKey count = 20'200; // one behind the other, so that one stands at every border
    TemporaryFolder folder;
    OpenStore open(folder.url("a.db"), ModelBuilder().entity("Tag").build());
    auto const first = open.store->reserveKeys(count, open.error);
    std::vector<RecordChange> changes;
    for (RecordKey key = first; key < first + count; ++key) changes.push_back(open.insertion("Tag", key, {}));
    ASSERT_FALSE(open.save(std::move(changes)));
    auto const keys = keysOf(open.fetch("Tag"));
    ASSERT_EQ(keys.size(), std::size_t{count});
    EXPECT_EQ(keys.back(), first + count - 1);
}

// A fetch right before each save keeps a read transaction, for the next fetch: the save has to end it, or nothing of the log can
// ever be written over.
TEST(SQLiteReaderPool, NoIdleReaderKeepsTheLogFromBeingEmptied) {
    TemporaryFolder folder;
    OpenStore open(folder.url("a.db"), libraryModel().build());
    auto const key = open.newKey();
    for (int round = 0; round < 40; ++round) {
        auto const name = std::string(400'000, static_cast<char>('a' + round % 26));
        auto const before = open.read("Author", key);
        ASSERT_FALSE(
            open.save({before ? open.update(before, {{"name", name}}) : open.insertion("Author", key, {{"name", name}})}));
        for (int look = 0; look < 20; ++look) open.read("Tag", key);
    }
    EXPECT_LT(std::filesystem::file_size(folder.path("a.db-wal")), 12'000'000U)
        << "16 MB went through it, and 4 MB of it are the usual";
}

} // namespace
} // namespace Tessarin::tests
