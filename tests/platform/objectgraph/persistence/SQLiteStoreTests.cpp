#include "StoreFixture.h"
#include "Tessarin/platform/objectgraph/persistence/stores/BatchChange.h"

namespace Tessarin::tests {
namespace {

using Keys = std::vector<RecordKey>;

TEST(SQLiteStore, EveryTypeComesBackAfterReopening) {
    struct {
        char const* name;
        NSAttributeType type;
        Value value;
    } const table[] = {
        {"flag", NSAttributeType::Boolean, true},
        {"small", NSAttributeType::Integer16, -3},
        {"large", NSAttributeType::Integer64, INT64_MIN},
        {"real", NSAttributeType::Double, 0.1},
        {"whole", NSAttributeType::Double, 4.0},
        {"single", NSAttributeType::Float, 0.1F},
        {"text", NSAttributeType::String, "Straße \"quoted\" 'n'"},
        {"empty", NSAttributeType::String, ""},
        {"when", NSAttributeType::Date, Value::date(-0.25)},
        {"bytes", NSAttributeType::BinaryData, Value::data(std::as_bytes(std::span("\0\x1\xff", 3)))},
        {"nothing", NSAttributeType::BinaryData, Value::data(std::vector<std::byte>{})},
        {"uuid", NSAttributeType::UUID, Value::uuid({1, 2, 3, 0, 5})},
        {"link", NSAttributeType::URI, Value::url("https://example.org/a%20b")},
        {"money", NSAttributeType::Decimal, Decimal::fromText("-12.50")},
        {"absent", NSAttributeType::String, {}},
        {"id", NSAttributeType::String, "an attribute may have any name"},
        {"Version", NSAttributeType::Integer32, 7},
        {"select \"x\"", NSAttributeType::String, "quoted"},
    };
    ModelBuilder builder;
    builder.entity("order");
    Dictionary values;
    for (auto const& row : table) {
        builder.attribute(row.name, row.type);
        if (!row.value.isAbsent()) values.set(row.name, row.value);
    }
    StoreFolder folder;
    RecordKey key = 0;
    {
        OpenStore open(folder.url("a.db"), builder.build());
        ASSERT_TRUE(open.store) << open.error->description();
        key = open.newKey();
        ASSERT_FALSE(open.save({open.insertion("order", key, values)}));
    }
    OpenStore open(folder.url("a.db"), builder.build());
    auto const found = open.read("order", key);
    ASSERT_TRUE(found);
    for (auto const& row : table) {
        auto const value = open.value(found, row.name);
        EXPECT_EQ(value, row.value) << row.name;
        EXPECT_EQ(value.kind(), row.value.kind()) << row.name;
    }
}

TEST(SQLiteStore, BatchRequestsLeaveNoRowInTheCacheThatIsOld) {
    StoreFolder folder;
    OpenStore open(folder.url("a.db"), libraryModel().build());
    Keys const keys{open.newKey(), open.newKey(), open.newKey()}; // an author, a book of it, a tag
    ASSERT_FALSE(
        open.save({open.insertion("Author", keys[0], {{"name", "old"}}), open.insertion("Book", keys[1], {{"author", keys[0]}}),
                   open.insertion("Tag", keys[2], {{"name", "old"}})}));
    RowRef const held[] = {open.read("Author", keys[0]), open.read("Book", keys[1]), open.read("Tag", keys[2])};
    auto const& cache = open.space->cache();
    BatchOutcome outcome;
    BatchTarget const tags{{.entity = &open.entity("Tag"), .sortDescriptors = {}}},
        authors{{.entity = &open.entity("Author"), .sortDescriptors = {}}};
    BatchAssignment const name{.property = open.entity("Tag").propertyNamed("name"), .value = "new"};
    ASSERT_FALSE(open.store->updateInBatch(tags, {&name, 1}, outcome));
    EXPECT_EQ(cache.find(keys[2]), nullptr);
    ASSERT_FALSE(open.store->deleteInBatch({&authors, 1}, outcome));
    EXPECT_EQ(cache.find(keys[0]), nullptr);
    EXPECT_EQ(cache.find(keys[1]), nullptr) << "its link was cut";
}

TEST(SQLiteStore, ASlowReaderPutsNoRowInTheCacheThatACommitHasReplaced) {
    StoreFolder folder;
    OpenStore open(folder.url("a.db"), libraryModel().build());
    Keys const keys{open.newKey(), open.newKey()};
    ASSERT_FALSE(
        open.save({open.insertion("Tag", keys[0], {{"name", "old"}}), open.insertion("Tag", keys[1], {{"name", "old"}})}));
    std::vector<RowRef> rows;
    EXPECT_FALSE(open.store->rows(open.entity("Tag"), keys, [&](RowRef row) {
        if (rows.empty()) { // nobody keeps the row that replaces the other one
            EXPECT_FALSE(open.save({open.update(open.read("Tag", keys[1]), {{"name", "new"}})}));
        }
        rows.push_back(std::move(row));
    }));
    ASSERT_EQ(keysOf(rows), keys);
    EXPECT_EQ(open.value(rows[1], "name"), Value("old")) << "its transaction began before";
    EXPECT_NE(open.space->cache().find(keys[1]), rows[1]);
}

class LibraryInAnyStore : public testing::TestWithParam<OpenStore::Kind> {
protected:
    void SetUp() override {
        ASSERT_TRUE(open.store) << open.error->description();
        for (auto* key : {&ada, &emma, &orla, &red, &blue, &green}) *key = open.newKey();
    }
    /// Two books of one author, shelved in order, with tags in order; written from both sides as contexts do.
    void saveLibrary() {
        auto author = open.insertion("Author", ada, {{"name", "Ada"}});
        author.relationships = {open.links("Author", "books", {emma, orla}),
                                open.links("Author", "shelf", {emma, orla}, {}, Keys{orla, emma})};
        auto first = open.insertion("Book", emma, {{"code", "E"}, {"year", 1815}, {"author", ada}, {"shelvedBy", ada}});
        first.relationships = {open.links("Book", "tags", {red, blue, green}, {}, Keys{green, red, blue})};
        auto second = open.insertion("Book", orla, {{"code", "O"}, {"author", ada}, {"shelvedBy", ada}});
        second.relationships = {open.links("Book", "tags", {red}, {}, Keys{red})};
        std::vector<RecordChange> changes{author, first, second};
        for (auto const tag : {red, blue, green}) changes.push_back(open.insertion("Tag", tag, {{"name", "t"}}));
        changes[3].relationships = {open.links("Tag", "books", {emma, orla}), open.links("Tag", "friends", {blue})};
        changes[4].relationships = {open.links("Tag", "books", {emma}), open.links("Tag", "friends", {red})};
        changes[5].relationships = {open.links("Tag", "books", {emma})};
        auto const failure = open.save(std::move(changes));
        ASSERT_FALSE(failure) << failure->description();
    }

    StoreFolder folder;
    OpenStore open{folder.url("library.db"), libraryModel().build(), GetParam()};
    RecordKey ada = 0, emma = 0, orla = 0, red = 0, blue = 0, green = 0;
};

class LibraryInSQLite : public LibraryInAnyStore {};

INSTANTIATE_TEST_SUITE_P(Stores, LibraryInAnyStore, testing::Values(OpenStore::Kind::SQLite, OpenStore::Kind::Memory));
INSTANTIATE_TEST_SUITE_P(Stores, LibraryInSQLite, testing::Values(OpenStore::Kind::SQLite));

TEST_P(LibraryInAnyStore, LinksAreFoundFromBothSidesInOrderAndRemovedOnesLeaveNothingBehind) {
    saveLibrary();
    EXPECT_EQ(open.members("Author", "books", ada), (Keys{emma, orla}));
    EXPECT_EQ(open.members("Author", "shelf", ada), (Keys{orla, emma}));
    EXPECT_EQ(open.members("Book", "tags", emma), (Keys{green, red, blue}));
    EXPECT_EQ(open.members("Tag", "books", red), (Keys{emma, orla}));
    EXPECT_EQ(open.members("Tag", "friends", red), (Keys{blue}));
    EXPECT_EQ(open.members("Tag", "friends", blue), (Keys{red}));

    auto change = open.update(open.read("Book", emma), {});
    change.relationships = {open.links("Book", "tags", {}, {red}, Keys{blue, green})};
    auto shelf = open.update(open.read("Author", ada), {});
    shelf.relationships = {open.links("Author", "shelf", {}, {}, Keys{emma, orla})};
    ASSERT_FALSE(open.save({change, shelf}));
    EXPECT_EQ(open.members("Book", "tags", emma), (Keys{blue, green}));
    EXPECT_EQ(open.members("Tag", "books", red), (Keys{orla}));
    EXPECT_EQ(open.members("Author", "shelf", ada), (Keys{emma, orla}));

    ASSERT_FALSE(open.save({open.deletion(open.read("Tag", blue)), open.deletion(open.read("Book", orla))}));
    EXPECT_EQ(open.members("Book", "tags", emma), (Keys{green}));
    EXPECT_EQ(open.members("Tag", "books", red), Keys{});
    EXPECT_EQ(open.members("Tag", "friends", red), Keys{});
    EXPECT_FALSE(open.read("Book", orla));
}

TEST_P(LibraryInSQLite, TwoWritersOfOneRecordKeepWhatOnlyTheyChangedAndWhatIsDeletedStaysSo) {
    saveLibrary();
    OpenStore other(folder.url("library.db"), libraryModel().build());
    ASSERT_TRUE(other.store);
    auto const mine = open.read("Book", emma);
    ASSERT_FALSE(other.save({other.update(other.read("Book", emma), {{"code", "theirs"}, {"year", 1816}})}));
    ASSERT_FALSE(open.save({open.update(mine, {{"code", "mine"}, {"price", 9.5}})}));
    ASSERT_EQ(open.outcome.corrected.size(), 1U);
    for (auto const& row : {open.outcome.corrected[0].after, open.read("Book", emma)}) {
        EXPECT_EQ(open.value(row, "code"), Value("theirs"));
        EXPECT_EQ(open.value(row, "year"), Value(1816));
        EXPECT_EQ(open.value(row, "price"), Value(9.5));
        EXPECT_EQ(row->version(), 3U);
    }
    auto change = open.update(open.read("Book", emma), {{"code", "mine"}});
    change.relationships = {open.links("Book", "tags", {blue})};
    ASSERT_FALSE(other.save({other.deletion(other.read("Book", emma))}));
    ASSERT_FALSE(open.save({change}));
    EXPECT_FALSE(open.read("Book", emma));
    EXPECT_EQ(open.members("Tag", "books", blue), Keys{});
}

TEST_P(LibraryInAnyStore, AUniquenessConflictNamesEntityAndAttributesAndSavesNothing) {
    saveLibrary();
    auto const key = open.newKey();
    auto const failure =
        open.save({open.insertion("Author", key, {{"name", "Nobody"}}), open.insertion("Book", open.newKey(), {{"code", "E"}})});
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->userInfo()["entity"], Value("Book"));
    EXPECT_EQ(failure->userInfo()["attributes"], Value(List{"code"}));
    EXPECT_FALSE(open.read("Author", key));
    // Values may change hands within one save.
    ASSERT_FALSE(open.save({open.update(open.read("Book", emma), {{"code", "O"}}),
                            open.update(open.read("Book", orla), {{"code", "E"}, {"year", 3}})}));
    EXPECT_EQ(open.value(open.read("Book", emma), "code"), Value("O"));
    EXPECT_EQ(open.value(open.read("Book", orla), "year"), Value(3));
    // What a deletion frees may be taken in the same save.
    EXPECT_FALSE(open.save({open.deletion(open.read("Book", emma)), open.insertion("Book", open.newKey(), {{"code", "O"}})}));
}

TEST_P(LibraryInSQLite, MetadataOfEveryKindIsWrittenByASaveWithoutChanges) {
    Dictionary const written{{"text", "\"ä\"\n"},
                             {"flag", true},
                             {"count", 3},
                             {"whole", 3.0},
                             {"single", 0.5F},
                             {"date", Value::date(1.5)},
                             {"data", Value::data(std::as_bytes(std::span("\0\xff", 2)))},
                             {"uuid", Value::uuid({9})},
                             {"url", Value::url("a:b")},
                             {"decimal", Decimal::fromText("0.1")},
                             {"list", List{1, "two", List{}}},
                             {"$odd", Dictionary{{"$key", 1}}},
                             {"infinite", std::numeric_limits<double>::infinity()},
                             {"set", ValueSet{1, 2}}};
    auto metadata = open.store->metadata();
    EXPECT_EQ(metadata["NSStoreUUID"], Value(open.store->identifier()));
    for (auto const& [key, value] : written) metadata.set(key, value);
    open.store->setMetadata(metadata);
    ASSERT_FALSE(open.store->save({}, OpenStore::storeWins, open.outcome));
    OpenStore other(folder.url("library.db"), libraryModel().build());
    EXPECT_EQ(other.store->metadata(), metadata);
    for (auto const& [key, value] : written) EXPECT_EQ(other.store->metadata()[key].kind(), value.kind()) << key;
    // A key that another process added meanwhile stays when this one takes another away.
    metadata.erase("list");
    other.store->setMetadata(metadata);
    auto mine = open.store->metadata();
    mine.set("mine", 1);
    open.store->setMetadata(mine);
    ASSERT_FALSE(open.store->save({}, OpenStore::storeWins, open.outcome));
    ASSERT_FALSE(other.store->save({}, OpenStore::storeWins, other.outcome));
    OpenStore third(folder.url("library.db"), libraryModel().build());
    EXPECT_EQ(third.store->metadata()["mine"], Value(1));
    EXPECT_FALSE(third.store->metadata().contains("list"));
}

TEST_P(LibraryInSQLite, ManyRecordsAreReadInOneRangeOrOneByOne) {
    std::vector<RecordChange> changes{open.insertion("Author", ada, {}), open.insertion("Tag", red, {}),
                                      open.insertion("Tag", blue, {})};
    auto const first = open.store->reserveKeys(3000, open.error);
    for (RecordKey key = first; key < first + 3000; ++key) {
        changes.push_back(open.insertion("Book", key, {{"code", std::to_string(key)}, {"author", ada}}));
        changes.back().relationships = {open.links("Book", "tags", {key % 2 ? red : blue})};
    }
    ASSERT_FALSE(open.save(std::move(changes)));
    auto all = open.fetch("Book");
    EXPECT_EQ(all.size(), 3000U);
    // The same again with every record, and with some of them, at hand.
    std::vector<RowRef> some(all.begin(), all.begin() + 2500);
    EXPECT_EQ(open.fetch("Book"), all);
    all.clear();
    auto const again = open.fetch("Book");
    ASSERT_EQ(again.size(), 3000U);
    for (std::size_t at = 0; at < again.size(); ++at) {
        EXPECT_EQ(again[at]->key(), first + static_cast<RecordKey>(at));
        EXPECT_TRUE(at >= some.size() || again[at] == some[at]);
    }
    EXPECT_EQ(open.members("Author", "books", ada).size(), 3000U);
    EXPECT_EQ(open.members("Tag", "books", red).size(), 1500U);
    Keys dense, sparse;
    for (RecordKey key = first; key < first + 100; key += 3) dense.push_back(key);
    for (RecordKey key = first; key < first + 3000; key += 400) sparse.insert(sparse.begin(), key);
    sparse.push_back(first + 9999);
    for (auto const& keys : {dense, sparse}) {
        std::vector<RowRef> found;
        ASSERT_FALSE(open.store->rows(open.entity("Book"), keys, [&](RowRef row) { found.push_back(std::move(row)); }));
        Keys expected = keys;
        std::erase(expected, first + 9999);
        std::ranges::sort(expected);
        EXPECT_EQ(keysOf(found), expected);
    }
}

} // namespace
} // namespace Tessarin::tests
