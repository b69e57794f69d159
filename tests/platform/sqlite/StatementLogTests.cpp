#include "Tessarin/platform/sqlite/Connection.h"
#include <cstdlib>
#include <gtest/gtest.h>
#include <unistd.h>

namespace Tessarin::SQLite {
namespace {

TEST(StatementLogDeathTest, TellsTimeRowsAndCountsButNoValue) {
    auto const run = [] {
        setenv("TESSARIN_SQL", "1", 1);
        Connection connection(":memory:");
        connection.execute("CREATE TABLE a (b)");
        {
            auto const insert = connection.use("INSERT INTO a VALUES (?),\n(?)");
            insert->bind(1, "secret");
            insert->bind(2, std::int64_t{4711});
            insert->run();
        }
        auto const half = connection.use("SELECT b FROM a WHERE b <> ?");
        half->bind(1, "secret");
        half->step();
        half->reset(); // given up behind its first row
        _exit(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0),
                "SQL [0-9.]+ ms, [0-9]+ rows, 0 bound: CREATE TABLE a \\(b\\)\n"
                "SQL [0-9.]+ ms, 2 rows, 2 bound: INSERT INTO a VALUES \\(\\?\\),\\\\n\\(\\?\\)\n"
                "SQL [0-9.]+ ms, 1 rows, 1 bound: SELECT b FROM a WHERE b <> \\?\n$");
}

} // namespace
} // namespace Tessarin::SQLite
