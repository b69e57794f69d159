#include "StoreFixture.h"
#include "Tessarin/platform/objectgraph/persistence/rows/OrderPositionsPrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <algorithm>
#include <iterator>
#include <limits>
#include <map>
#include <random>

namespace Tessarin::tests {
namespace {

using Keys = std::vector<RecordKey>;

TEST(SQLiteStore, EveryTypeComesBackAfterReopening) {
    struct {
        char const* name;
        NSAttributeType type;
        Value value;
    // clang-format off
    } const table[] = {
        {"flag", NSAttributeType::Boolean, true}, {"small", NSAttributeType::Integer16, -3},
        {"large", NSAttributeType::Integer64, INT64_MIN}, {"real", NSAttributeType::Double, 0.1},
        {"whole", NSAttributeType::Double, 4.0}, {"single", NSAttributeType::Float, 0.1F},
        {"text", NSAttributeType::String, "Straße \"quoted\" 'n'"}, {"empty", NSAttributeType::String, ""},
        {"when", NSAttributeType::Date, Value::date(-0.25)},
        {"bytes", NSAttributeType::BinaryData, Value::data(std::as_bytes(std::span("\0\x1\xff", 3)))},
        {"nothing", NSAttributeType::BinaryData, Value::data(std::vector<std::byte>{})},
        {"uuid", NSAttributeType::UUID, Value::uuid({1, 2, 3, 0, 5})},
        {"link", NSAttributeType::URI, Value::url("https://example.org/a%20b")},
        {"money", NSAttributeType::Decimal, Decimal::fromText("-12.50")}, {"absent", NSAttributeType::String, {}},
        {"id", NSAttributeType::String, "an attribute may have any name"}, {"Version", NSAttributeType::Integer32, 7},
        {"select \"x\"", NSAttributeType::String, "quoted"},
        {"much", NSAttributeType::BinaryData, Value::data(std::vector<std::byte>(400'000))}}; // a large file is checked otherwise
    // clang-format on
    auto const* const entity = "the \"order\"";
    ModelBuilder builder;
    builder.entity(entity).unique({"select \"x\""});
    Dictionary values;
    for (auto const& row : table) {
        builder.attribute(row.name, row.type);
        if (!row.value.isAbsent()) values.set(row.name, row.value);
    }
    TemporaryFolder folder;
    RecordKey key = 0;
    {
        OpenStore open(folder.url("a.db"), builder.build());
        ASSERT_TRUE(open.store) << open.error->description();
        key = open.newKey();
        ASSERT_FALSE(open.save({open.insertion(entity, key, values)}));
        auto const refusal = open.save({open.insertion(entity, open.newKey(), {{"select \"x\"", "quoted"}})});
        EXPECT_EQ(refusal->code(), static_cast<std::int64_t>(StoreErrorCode::ConstraintConflict)) << refusal->description();
    }
    // As the first versions wrote it.
    SQLite::Connection(folder.path("a.db")).execute("UPDATE tessarin_entity SET \"table\" = 'the \"\"order\"\"'");
    OpenStore open(folder.url("a.db"), builder.build());
    ASSERT_TRUE(open.store) << open.error->description();
    auto const found = open.read(entity, key);
    ASSERT_TRUE(found);
    for (auto const& row : table) {
        auto const value = open.value(found, row.name);
        EXPECT_EQ(value, row.value) << row.name;
        EXPECT_EQ(value.kind(), row.value.kind()) << row.name;
    }
}

TEST(SQLiteStore, ASlowReaderPutsNoRowInTheCacheThatACommitHasReplaced) {
    TemporaryFolder folder;
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

TEST(SQLiteStore, MetadataOfEveryKindIsWrittenByASaveWithoutChanges) {
    TemporaryFolder folder;
    OpenStore open(folder.url("library.db"), libraryModel().build());
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
                             {"set", ValueSet{1, 2}},
                             {"not UTF-8", "caf\xE9"},
                             {"nested", List{Dictionary{{"\xFF", Value::url("\xE9")}, {"$key", 1}}}}};
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

TEST(SQLiteStore, MetadataThatNobodyAskedForStaysAsOthersLeftIt) {
    TemporaryFolder folder;
    OpenStore open(folder.url("library.db"), libraryModel().build()), other(folder.url("library.db"), libraryModel().build());
    auto const insertOne = [&] { return open.save({open.insertion("Tag", open.newKey(), {{"name", "a"}})}); };
    auto theirs = other.store->metadata();
    theirs.set("theirs", 1);
    other.store->setMetadata(theirs);
    ASSERT_FALSE(other.store->save({}, OpenStore::storeWins, other.outcome));
    ASSERT_FALSE(insertOne());
    auto mine = open.store->metadata();
    EXPECT_FALSE(mine.contains("theirs")) << "as it was opened";
    EXPECT_EQ(mine["NSStoreUUID"], Value(open.store->identifier()));
    mine.set("mine", 2);
    open.store->setMetadata(mine);
    ASSERT_FALSE(insertOne());
    OpenStore third(folder.url("library.db"), libraryModel().build());
    EXPECT_EQ(third.store->metadata()["theirs"], Value(1));
    EXPECT_EQ(third.store->metadata()["mine"], Value(2));
}

// Nothing was marked before: no reader may take that for "nothing has changed".
TEST(SQLiteStore, RowsThatAnOlderReaderSeesAreNotKeptAfterAllWereForgotten) {
    TemporaryFolder folder;
    OpenStore open(folder.url("library.db"), libraryModel().build());
    auto& cache = open.space->cache();
    auto const asOf = cache.now();
    cache.removeAll();
    cache.endCommit();
    auto row = open.row("Tag", 7, {{"name", "old"}});
    cache.addAll({&row, 1}, asOf);
    EXPECT_FALSE(cache.find(7));
    cache.addAll({&row, 1}, cache.now());
    EXPECT_TRUE(cache.find(7));
}

TEST(SQLiteStore, RecordsAreReadInOneRangeOrOneByOne) {
    TemporaryFolder folder;
    OpenStore open(folder.url("library.db"), libraryModel().build());
    auto const first = open.store->reserveKeys(3000, open.error);
    std::vector<RecordChange> changes;
    for (RecordKey key = first; key < first + 3000; ++key) changes.push_back(open.insertion("Book", key, {}));
    ASSERT_FALSE(open.save(std::move(changes)));
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

TEST(AnyStore, ADeletedRecordLeavesNoLinksAndNoGapInAnOrder) {
    for (auto const kind : {OpenStore::Kind::SQLite, OpenStore::Kind::Memory}) {
        TemporaryFolder folder;
        OpenStore open(folder.url("a.db"), libraryModel().build(), kind);
        RecordKey const book = open.newKey(), red = open.newKey(), blue = open.newKey();
        std::vector<RecordChange> changes{open.insertion("Book", book, {}), open.insertion("Tag", red, {}),
                                          open.insertion("Tag", blue, {})};
        changes[0].relationships = {open.links("Book", "tags", {red, blue}, {}, Keys{blue, red})};
        changes[1].relationships = {open.links("Tag", "books", {book}), open.links("Tag", "friends", {blue})};
        changes[2].relationships = {open.links("Tag", "books", {book}), open.links("Tag", "friends", {red})};
        ASSERT_FALSE(open.save(std::move(changes)));
        EXPECT_EQ(open.members("Book", "tags", book), (Keys{blue, red}));
        ASSERT_FALSE(open.save({open.deletion(open.read("Tag", blue))}));
        EXPECT_EQ(open.members("Book", "tags", book), Keys{red});
        EXPECT_EQ(open.members("Tag", "friends", red), Keys{});
    }
}

/// A list with what the store knows of it.
struct Stored {
    std::vector<RecordKey> order;
    std::map<RecordKey, std::int64_t> positions;

    std::size_t write() {
        std::vector<OrderedMember> members;
        for (auto const key : order)
            members.push_back({key, positions.contains(key) ? std::optional(positions[key]) : std::nullopt});
        auto const changed = changedPositions(members);
        for (auto const& [member, position] : changed) positions[member] = *position;
        for (std::size_t at = 1; at < order.size(); ++at)
            EXPECT_LT(positions[order[at - 1]], positions[order[at]]) << "at " << at;
        return changed.size();
    }
};

TEST(OrderPositions, OneMovedOrAddedMemberIsOneWrite) {
    Stored list;
    for (RecordKey key = 1; key <= 100; ++key) list.order.push_back(key);
    EXPECT_EQ(list.write(), 100U);
    EXPECT_EQ(list.write(), 0U);
    list.order.push_back(101);
    EXPECT_EQ(list.write(), 1U);
    list.order.insert(list.order.begin(), 102);
    EXPECT_EQ(list.write(), 1U);
    std::ranges::rotate(list.order.begin() + 10, list.order.begin() + 11, list.order.begin() + 60);
    EXPECT_EQ(list.write(), 1U);
    list.order.erase(list.order.begin() + 5);
    EXPECT_EQ(list.write(), 0U);
}

TEST(OrderPositions, AnyChangesLeaveThemAscending) {
    std::mt19937 random{11};
    Stored list;
    RecordKey next = 1;
    for (int round = 0; round < 2000; ++round) {
        auto const place = [&] { return list.order.begin() + static_cast<std::ptrdiff_t>(random() % list.order.size()); };
        if (list.order.size() < 5 || random() % 3 == 0)
            list.order.insert(list.order.begin() + std::min<std::ptrdiff_t>(3, std::ssize(list.order)),
                              next++); // always at one place: room runs out there
        else if (random() % 3 == 0)
            list.order.erase(place());
        else if (random() % 20 == 0)
            std::ranges::shuffle(list.order, random);
        else
            std::iter_swap(place(), place());
        list.write();
        ASSERT_FALSE(testing::Test::HasFailure()) << "in round " << round;
    }
}

} // namespace
} // namespace Tessarin::tests
