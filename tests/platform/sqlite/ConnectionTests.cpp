#include "Tessarin/platform/sqlite/Transaction.h"

#include "tests/support/TemporaryFolder.h"
#include <cerrno>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <sqlite3.h>

namespace Tessarin::SQLite {
namespace {

class Connections : public testing::Test {
protected:
    tests::TemporaryFolder const folder;
    std::string const path = folder.path("a.db");
};

TEST_F(Connections, AStatementInUseIsNotGivenOutASecondTime) {
    Connection connection(path);
    connection.execute("CREATE TABLE a (id INTEGER PRIMARY KEY); INSERT INTO a VALUES (1), (2), (3)");
    int pairs = 0;
    auto const outer = connection.use("SELECT id FROM a");
    while (outer->step()) {
        auto const inner = connection.use("SELECT id FROM a");
        EXPECT_NE(&*inner, &*outer);
        while (inner->step()) ++pairs;
    }
    EXPECT_EQ(pairs, 9);
    // More texts than are kept: the one in use stays.
    for (int at = 0; at < 500; ++at) connection.use("SELECT " + std::to_string(at))->step();
    outer->reset();
    EXPECT_TRUE(outer->step());
}

TEST_F(Connections, AVeryLongPatienceIsNotNone) {
    for (auto const seconds : {5e6, 1e300, std::numeric_limits<double>::infinity()})
        EXPECT_GT(Connection(path, {.busySeconds = seconds}).integer("PRAGMA busy_timeout"), 1'000'000'000) << seconds;
    for (auto const seconds : {0.0, -1.0, std::nan("")})
        EXPECT_EQ(Connection(path, {.busySeconds = seconds}).integer("PRAGMA busy_timeout"), 0) << seconds;
}

TEST_F(Connections, EmptyTextAndBytesAreNotNull) {
    Connection connection(path);
    auto const query = connection.use("SELECT ?, ?, ?, typeof(?1), typeof(?2)");
    query->bind(1, std::string_view{});
    query->bind(2, std::span<std::byte const>{});
    query->bindNull(3);
    ASSERT_TRUE(query->step());
    EXPECT_FALSE(query->isNull(0));
    EXPECT_FALSE(query->isNull(1));
    EXPECT_TRUE(query->isNull(2));
    EXPECT_EQ(query->text(3), "text");
    EXPECT_EQ(query->text(4), "blob");
}

TEST_F(Connections, WhatWasNotCommittedIsTakenBackAlsoAfterAnError) {
    Connection connection(path);
    connection.execute("CREATE TABLE a (id INTEGER PRIMARY KEY)");
    { // left without a word
        Transaction transaction(connection);
        connection.execute("INSERT INTO a VALUES (1)");
    }
    try {
        Transaction transaction(connection);
        connection.execute("INSERT INTO a VALUES (2)");
        connection.execute("INSERT INTO a VALUES (2)");
        FAIL();
    } catch (Failure const& failure) {
        EXPECT_EQ(failure.code(), SQLITE_CONSTRAINT_PRIMARYKEY);
        EXPECT_EQ(failure.error()->code(), SQLITE_CONSTRAINT_PRIMARYKEY);
        EXPECT_EQ(failure.error()->userInfo()[NSFilePathErrorKey], Value(path));
    }
    EXPECT_FALSE(connection.isInTransaction());
    EXPECT_EQ(connection.integer("SELECT count(*) FROM a"), 0);
    Transaction transaction(connection);
    connection.execute("INSERT INTO a VALUES (3)");
    transaction.commit();
    EXPECT_EQ(Connection(path).integer("SELECT id FROM a"), 3);
}

TEST_F(Connections, FailuresCarryTheSystemsReason) {
    try {
        Connection const none(folder.path("missing/a.db"));
        FAIL();
    } catch (Failure const& failure) {
        EXPECT_EQ(failure.primaryCode(), SQLITE_CANTOPEN);
        EXPECT_EQ(failure.systemError(), ENOENT);
    }
    Connection first(path), second(path, {.busySeconds = 0});
    first.execute("PRAGMA journal_mode = WAL; CREATE TABLE a (b)");
    Transaction transaction(first);
    try {
        Transaction other(second);
        FAIL();
    } catch (Failure const& failure) {
        EXPECT_EQ(failure.primaryCode(), SQLITE_BUSY);
    }
}

TEST_F(Connections, ACommitOfAnyConnectionIsNoticedWithinAReadTransaction) {
    Connection reader(path), writer(path);
    writer.execute("PRAGMA journal_mode = WAL; CREATE TABLE a (b)");
    reader.noteCommits();
    reader.execute("BEGIN");
    EXPECT_EQ(reader.integer("SELECT count(*) FROM a"), 0);
    EXPECT_FALSE(reader.hasNewerCommits());
    writer.execute("INSERT INTO a VALUES (1)");
    EXPECT_TRUE(reader.hasNewerCommits());
    EXPECT_EQ(reader.integer("SELECT count(*) FROM a"), 0);
    reader.execute("COMMIT");
    reader.noteCommits();
    EXPECT_FALSE(reader.hasNewerCommits());
    writer.execute("DELETE FROM a; PRAGMA wal_checkpoint(TRUNCATE)");
    EXPECT_TRUE(reader.hasNewerCommits());
}

} // namespace
} // namespace Tessarin::SQLite
