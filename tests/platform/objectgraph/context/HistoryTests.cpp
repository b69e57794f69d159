#include "Tessarin/platform/sqlite/Connection.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Library.h"
#include "tests/support/Eventually.h"
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace Tessarin::tests {
namespace {

/// "Book +4..5; Book ~4(title); Book -4{title: a}; Book ~1..9?(year)", in the order in which it is told.
std::string told(std::vector<HistoryTransaction> const& transactions) {
    std::string all;
    for (auto const& transaction : transactions) {
        all += fmt::format("{}[{}|{}]", all.empty() ? "" : " ", transaction.author, transaction.context);
        for (auto const& change : transaction.changes) {
            all += fmt::format(" {} {}{}", change.entity->name(), "+~-"[static_cast<int>(change.kind)], change.first);
            if (change.last != change.first) all += fmt::format("..{}", change.last);
            if (change.extent == HistoryChange::Extent::Range) all += "?";
            std::vector<std::string> names;
            for (auto const* property : change.updated) names.push_back(property->name());
            if (!names.empty()) all += fmt::format("({})", fmt::join(names, ","));
            for (auto const& [key, value] : change.kept)
                all += fmt::format("{{{}: {}}}", std::string(std::string_view(key)), value.description());
        }
    }
    return all;
}

class History : public testing::Test {
protected:
    static Ref<NSManagedObjectModel> model() {
        static auto const& made = *new auto(ModelBuilder()
                                                .entity("Shelf")
                                                .attribute("name", NSAttributeType::String)
                                                .toMany("books", "Book", {.inverse = "shelf"})
                                                .entity("Book")
                                                .attribute("title", NSAttributeType::String, {.keptInHistory = true})
                                                .attribute("year", NSAttributeType::Integer32)
                                                .toOne("shelf", "Shelf", {.inverse = "books"})
                                                .build());
        return made;
    }
    Ref<NSPersistentStoreCoordinator> open(bool keeps = true) {
        auto const made = make<NSPersistentStoreCoordinator>(model());
        EXPECT_TRUE(made->addPersistentStoreWithType(NSSQLiteStoreType, {}, NSURL::fileURLWithPath(file),
                                                     {{NSStoreHistoryOption, keeps}}, error));
        return made;
    }
    void save(std::function<void()> change) {
        root->performBlockAndWait([&] {
            change();
            EXPECT_TRUE(root->save(error)) << error->description();
        });
    }
    std::string since(std::optional<HistoryToken> token, Ref<NSPredicate> predicate = nullptr) {
        return told(root->executeRequest({.after = token, .predicate = predicate}, error));
    }
    HistoryToken now() { return coordinator->currentHistoryToken(error).value(); }
    StoreErrorCode code() const { return error ? static_cast<StoreErrorCode>(error->code()) : StoreErrorCode{}; }
    void run(std::string const& sql) const { SQLite::Connection(file).execute(sql); }

    TemporaryFolder folder;
    std::string const file = folder.path("shelf.db");
    Ref<NSError> error;
    Ref<NSPersistentStoreCoordinator> coordinator = open();
    Ref<NSManagedObjectContext> root = contextOver(coordinator);
    Ref<NSManagedObject> shelf, book;
    void fill() {
        save([&] {
            shelf = root->insertNewObject("Shelf");
            for (int at = 0; at < 4; ++at)
                (book = root->insertNewObject("Book"))->setValueForKey("t" + std::to_string(at), "title");
        });
    }
};

TEST_F(History, AKeptTextThatIsNotUTF8DamagesNothing) {
    fill();
    save([&] { book->setValueForKey("caf\xE9", "title"); });
    auto const start = now();
    save([&] { root->deleteObject(*book); });
    EXPECT_EQ(since(start), "[|] Book -5{title: caf\xE9}");
}

TEST_F(History, TellsWhatHappenedToEachRecordAndWhoDidIt) {
    auto const start = now();
    root->setName("root");
    fill();
    EXPECT_EQ(since(start), "[|root] Shelf +1 Book +2..5");
    auto const middle = HistoryToken::fromText(now().text());
    ASSERT_TRUE(middle);
    root->setTransactionAuthor("me");
    save([&] { book->setValueForKey(5, "year"); });
    save([&] { book->setValueForKey(shelf, "shelf"); });
    save([&] { root->deleteObject(*book); });
    EXPECT_EQ(since(middle), "[me|root] Book ~5(year) [me|root] Shelf ~1(books) Book ~5(shelf) "
                             "[me|root] Shelf ~1(books) Book -5{title: t3}");
    EXPECT_EQ(since({}, NSPredicate::predicateWithFormat("author == ''")), "[|root] Shelf +1 Book +2..5");
    auto const all = root->executeRequest({.since = NSDate::dateWithTimeIntervalSinceNow(-60)}, error);
    EXPECT_EQ(all.size(), 4U);
    EXPECT_TRUE(all[0].isOwn && all[0].process == ::getpid());
    EXPECT_EQ(all[0].changes[1].objectIDs(*coordinator)[3], book->objectID());
    EXPECT_TRUE(root->executeRequest({.since = NSDate::dateWithTimeIntervalSinceNow(60)}, error).empty());
    EXPECT_EQ(root->executeRequest({.limit = 2}, error).size(), 2U);
    EXPECT_EQ(since(now()), "");
    // Who made changes is told also where somebody else writes them, together with those of others.
    auto const here = now();
    for (auto const* author : {"a", "b"}) {
        auto const worker = childOf(root);
        worker->setTransactionAuthor(author);
        worker->performBlockAndWait([&] {
            worker->insertNewObject("Shelf")->setValueForKey(author, "name");
            EXPECT_TRUE(worker->save(error));
        });
    }
    save([] {});
    std::vector<std::string> authors;
    auto const isTold = dispatch_semaphore_create(0);
    root->fetchHistory({.after = here}, [&](auto transactions, Ref<NSError> const& problem) {
        EXPECT_TRUE(!problem && queueIsHeld(root->queue()));
        for (auto const& each : transactions) authors.push_back(each.author + std::to_string(each.changes.size()));
        root = nullptr;
        dispatch_semaphore_signal(isTold);
    });
    ASSERT_EQ(dispatch_semaphore_wait(isTold, dispatch_time(DISPATCH_TIME_NOW, 60 * NSEC_PER_SEC)), 0);
    EXPECT_EQ(fmt::format("{}", fmt::join(authors, " ")), "a1 b1");
}

TEST_F(History, BatchesStandInItAsRangesWhereNobodyLooksAtSingleRecords) {
    fill();
    save([&] { book->setValueForKey(shelf, "shelf"); });
    auto const start = now();
    coordinator->closeStore();
    root = contextOver(coordinator = open()); // nobody has a record in memory
    root->setTransactionAuthor("batch");
    auto const update = make<NSBatchUpdateRequest>("Shelf");
    update->setPropertiesToUpdate({{"name", "x"}});
    ASSERT_TRUE(root->executeRequest(*update, error)) << error->description();
    auto const remove = make<NSBatchDeleteRequest>(make<NSFetchRequest>("Shelf"));
    ASSERT_TRUE(root->executeRequest(*remove, error));
    auto const some = make<NSFetchRequest>("Book");
    some->setPredicate(NSPredicate::predicateWithFormat("title > 't1'"));
    ASSERT_TRUE(root->executeRequest(*make<NSBatchDeleteRequest>(some), error));
    EXPECT_EQ(since(start), "[batch|] Shelf ~1?(name) [batch|] Shelf -1? Book ~2..5?(shelf) "
                            "[batch|] Book -4{title: t2} Book -5{title: t3}");
}

TEST_F(History, NamesWhatOnlySubEntitiesHaveWhereNobodyLooksAtSingleRecords) {
    auto const library = ModelBuilder()
                             .entity("Shelf")
                             .entity("Item")
                             .entity("Book", {.parent = "Item"})
                             .attribute("year", NSAttributeType::Integer32)
                             .toOne("shelf", "Shelf")
                             .build();
    auto const place = NSURL::fileURLWithPath(folder.path("library.db"));
    std::optional<HistoryToken> start;
    for (bool isFirst : {true, false}) { // the second time nobody has a record in memory
        coordinator = make<NSPersistentStoreCoordinator>(library);
        Dictionary const options{{NSStoreHistoryOption, true}};
        ASSERT_TRUE(coordinator->addPersistentStoreWithType(NSSQLiteStoreType, {}, place, options, error));
        root = contextOver(coordinator);
        if (isFirst)
            save([&] {
                for (int at = 0; at < 2; ++at)
                    root->insertNewObject("Book")->setValueForKey(root->insertNewObject("Shelf"), "shelf");
            });
        if (isFirst) start = now(), coordinator->closeStore();
    }
    auto const update = make<NSBatchUpdateRequest>("Book");
    update->setPropertiesToUpdate({{"year", 1}});
    ASSERT_TRUE(root->executeRequest(*update, error)) << error->description();
    auto const all = make<NSFetchRequest>("Shelf");
    save([&] { root->deleteObject(*root->executeFetchRequest(*all, error)[0]); });
    ASSERT_TRUE(root->executeRequest(*make<NSBatchDeleteRequest>(all), error));
    auto const text = since(start);
    for (auto const* expected : {"[|] Book ~1..3?(year)", "Shelf -2 Book ~1?(shelf)", "Shelf -4? Book ~1..3?(shelf)"})
        EXPECT_NE(text.find(expected), std::string::npos) << text << (error ? error->description() : "");
}

TEST_F(History, WhatWasForgottenOrIsDamagedIsAnErrorOfTheFetchAlone) {
    auto const start = now();
    for (int times = 0; times < 3; ++times) fill();
    auto const foreign = HistoryToken{start.history + 1, 1};
    EXPECT_EQ(since(foreign), "");
    EXPECT_EQ(code(), StoreErrorCode::HistoryPurged);
    ASSERT_TRUE(coordinator->purgeHistory(HistoryToken{start.history, 2}, error)) << error->description();
    EXPECT_EQ(since(start), "");
    EXPECT_EQ(code(), StoreErrorCode::HistoryPurged);
    EXPECT_EQ(since(HistoryToken{start.history, 2}), "[|] Shelf +11 Book +12..15");
    EXPECT_EQ(since({}), "[|] Shelf +11 Book +12..15");
    ASSERT_TRUE(coordinator->purgeHistory(NSDate::dateWithTimeIntervalSinceNow(-60), error)); // nothing is that old
    EXPECT_EQ(now().transaction, 3);
    ASSERT_TRUE(coordinator->purgeHistory(NSDate::dateWithTimeIntervalSinceNow(60), error));
    fill();
    EXPECT_EQ(now().transaction, 4) << "numbers are never used again";
    EXPECT_EQ(since(HistoryToken{start.history, 3}).substr(0, 14), "[|] Shelf +16 ");

    fill();
    char const* const damages[] = {"UPDATE tessarin_history SET changes = x'01FF'",
                                   "UPDATE tessarin_history SET changes = x'0101027F'",
                                   "UPDATE tessarin_history SET changes = x'010100FFFFFFFFFFFFFFFFFF01'",
                                   "UPDATE tessarin_history SET changes = 'text'",
                                   "UPDATE tessarin_history SET changes = ''",
                                   "DELETE FROM tessarin_history WHERE id = 4"};
    for (auto const* damage : damages) {
        run(damage);
        EXPECT_EQ(since(HistoryToken{start.history, 3}), "") << damage;
        EXPECT_EQ(code(), StoreErrorCode::HistoryDamaged) << damage;
    }
    run("DROP TABLE tessarin_history");
    testing::internal::CaptureStderr();
    fill(); // and fill again: told once
    fill();
    auto const said = testing::internal::GetCapturedStderr();
    EXPECT_NE(said.find("cannot be written"), std::string::npos) << said;
    EXPECT_EQ(said.find("cannot be written"), said.rfind("cannot be written"));
    EXPECT_EQ(since({}), "");
    EXPECT_EQ(code(), StoreErrorCode::HistoryMissing);
    EXPECT_EQ(root->countForFetchRequest(*make<NSFetchRequest>("Book"), error), 7 * 4);
}

TEST_F(History, IsKeptOnlyWhereItIsAskedForAndNotBeyondAMigration) {
    fill();
    auto const start = now();
    coordinator->closeStore();
    root = contextOver(coordinator = open(false));
    fill();
    EXPECT_EQ(since(start), "");
    EXPECT_EQ(code(), StoreErrorCode::HistoryPurged) << "it is behind the token, and nobody can say what it was";
    coordinator->closeStore();
    auto later = ModelBuilder().entity("Shelf").attribute("name", NSAttributeType::String).entity("Other").build();
    auto const migrated = make<NSPersistentStoreCoordinator>(later);
    ASSERT_TRUE(migrated->addPersistentStoreWithType(NSSQLiteStoreType, {}, NSURL::fileURLWithPath(file), {}, error));
    EXPECT_TRUE(migrated->fetchHistory({.after = HistoryToken{start.history, start.transaction - 1}}, error).empty());
    EXPECT_EQ(code(), StoreErrorCode::HistoryPurged);
}

TEST_F(History, WhatWasSavedWithoutOneIsNotPassedOverInSilence) {
    auto const start = now();
    fill();
    auto const first = now();
    auto const others = open(false);
    auto const silent = contextOver(others);
    auto const saveSilently = [&] {
        silent->performBlockAndWait([&] {
            silent->insertNewObject("Shelf");
            EXPECT_TRUE(silent->save(error)) << error->description();
        });
    };
    auto const marks = [&] {
        return SQLite::Connection(file).integer("SELECT value FROM tessarin_store WHERE key = 'historyGap'");
    };
    auto const expectLost = [&](HistoryToken token) {
        EXPECT_EQ(since(token), "") << token.transaction;
        EXPECT_EQ(code(), StoreErrorCode::HistoryPurged) << token.transaction;
    };
    saveSilently();
    saveSilently();
    EXPECT_EQ(marks(), 2);
    expectLost(first);
    auto const behind = now(); // of use at once, though nothing follows the gap yet
    EXPECT_EQ(since(behind), "");
    EXPECT_FALSE(error);
    fill();
    EXPECT_EQ(since(behind).substr(0, 10), "[|] Shelf ");
    for (auto const& token : {start, first}) expectLost(token);
    EXPECT_EQ(root->executeRequest(HistoryRequest{}, error).size(), 2U) << "what is known can be read";
    auto const last = now();
    auto const update = make<NSBatchUpdateRequest>("Shelf");
    update->setPropertiesToUpdate({{"name", "x"}});
    ASSERT_TRUE(silent->executeRequest(*update, error)) << "the mark is set again, by requests, too";
    expectLost(last);
    EXPECT_EQ(marks(), last.transaction + 1);
    fill();
    expectLost(last);
}

TEST_F(History, OneRowStandsForATransactionHoweverLarge) {
    save([&] {
        for (int at = 0; at < 20'000; ++at) root->insertNewObject("Shelf");
    });
    SQLite::Connection connection(file);
    EXPECT_EQ(connection.integer("SELECT count(*) FROM tessarin_history"), 1);
    EXPECT_LT(connection.integer("SELECT length(changes) FROM tessarin_history"), 12);
}

} // namespace
} // namespace Tessarin::tests
