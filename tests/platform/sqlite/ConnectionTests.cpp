#include "Tessarin/platform/sqlite/Interruption.h"
#include "Tessarin/platform/sqlite/Transaction.h"

#include "tests/support/TemporaryFolder.h"
#include <atomic>
#include <cerrno>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <sqlite3.h>
#include <thread>

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

TEST_F(Connections, AFlagEndsTheStatementThatRunsAndNoneAfterIt) {
    Connection connection(path);
    auto const endless = "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) SELECT count(*) FROM c";
    for (int round = 0; round < 3; ++round) {
        std::atomic<bool> isGivenUp = false;
        std::thread other([&] { isGivenUp = true; });
        {
            Interruption const interruption(connection, &isGivenUp);
            auto const statement = connection.use(endless);
            EXPECT_THROW(statement->step(), Failure);
        }
        other.join();
        EXPECT_EQ(connection.integer("WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c LIMIT 100000) "
                                     "SELECT count(*) FROM c"),
                  100'000);
    }
}

TEST_F(Connections, AVeryLongPatienceIsNotNone) {
    for (auto const seconds : {5e6, 1e300, std::numeric_limits<double>::infinity()})
        EXPECT_GT(Connection(path, {.busySeconds = seconds}).integer("PRAGMA busy_timeout"), 1'000'000'000) << seconds;
    for (auto const seconds : {0.0, -1.0, std::nan("")})
        EXPECT_EQ(Connection(path, {.busySeconds = seconds}).integer("PRAGMA busy_timeout"), 0) << seconds;
}

TEST_F(Connections, AnEmptyTextIsNotNull) {
    Connection connection(path);
    auto const query = connection.use("SELECT ?");
    query->bind(1, std::string_view{});
    ASSERT_TRUE(query->step());
    EXPECT_FALSE(query->isNull(0));
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
