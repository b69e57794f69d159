#include "Tessarin/platform/sqlite/IndexWalk.h"
#include "Tessarin/platform/sqlite/TableWalk.h"

#include "tests/support/TemporaryFolder.h"
#include <bit>
#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <random>

namespace Tessarin::SQLite {
namespace {

using Kind = TableRecord::Kind;
constexpr std::size_t columnCount = 6;

/// Whole numbers alike, whether they are stored as integers or not: SQLite does so in REAL columns only.
std::string described(double real) {
    bool const isWhole = std::abs(real) < 1e15 && real == static_cast<double>(static_cast<std::int64_t>(real));
    return isWhole ? std::to_string(static_cast<std::int64_t>(real)) : "r" + std::to_string(std::bit_cast<std::uint64_t>(real));
}

std::string described(TableRecord const& record, std::size_t column) {
    switch (record.kindOf(column)) {
    case Kind::Missing: return "missing";
    case Kind::Null: return "null";
    case Kind::Integer: return std::to_string(record.integer(column));
    case Kind::Real: return described(record.real(column));
    case Kind::Text: return "t" + std::string(record.content(column));
    case Kind::Bytes: return "b" + std::string(record.content(column));
    }
    return "";
}

std::string described(TableRecord const& record) {
    auto line = std::to_string(record.key());
    for (std::size_t column = 1; column < columnCount; ++column) line += "|" + described(record, column);
    return line;
}

std::string described(Statement const& row, int column, std::string_view type) {
    if (type == "null") return "null";
    if (type == "integer") return std::to_string(row.integer(column));
    if (type == "real") return described(row.real(column));
    if (type == "text") return "t" + std::string(row.text(column));
    auto const bytes = row.bytes(column);
    return "b" + std::string(reinterpret_cast<char const*>(bytes.data()), bytes.size());
}

using Lines = std::vector<std::string>;

Lines linesByStatement(Connection& connection, std::int64_t first, std::int64_t last) {
    Lines lines;
    auto const rows = connection.use("SELECT *, typeof(a), typeof(b), typeof(c), typeof(d), typeof(e) FROM t "
                                     "WHERE id BETWEEN ? AND ? ORDER BY id");
    rows->bind(1, first);
    rows->bind(2, last);
    while (rows->step()) {
        auto line = std::to_string(rows->integer(0));
        for (int column = 1; column < static_cast<int>(columnCount); ++column)
            line += "|" + described(*rows, column, rows->text(column + 5));
        lines.push_back(std::move(line));
    }
    return lines;
}

SnapshotPages::Number rootOf(Connection& connection, std::string const& name) {
    return static_cast<SnapshotPages::Number>(
        connection.integer("SELECT rootpage FROM sqlite_schema WHERE name = '" + name + "'"));
}

std::optional<Lines> linesByPages(Connection& connection, SnapshotPages& pages, std::int64_t first, std::int64_t last) {
    if (!pages.see()) return {};
    Lines lines;
    TableWalk walk(pages, rootOf(connection, "t"));
    bool const isSound = walk.read(first, last, [&](TableRecord const& record) {
        lines.push_back(described(record));
        return true;
    });
    return isSound ? std::optional(std::move(lines)) : std::nullopt;
}

using Sought = IndexWalk::Sought;

/// The records of which the column equals a value, by its index, each looked up by its key.
std::optional<Lines> linesByIndex(Connection& connection, SnapshotPages& pages, std::string const& column, Sought const& sought) {
    Lines lines;
    TableWalk table(pages, rootOf(connection, "t"));
    IndexWalk index(pages, rootOf(connection, "t_" + column));
    bool areThere = true;
    bool const isSound = index.find(sought, [&](std::int64_t key) {
        auto const record = table.find(key);
        areThere = record && *record;
        if (areThere) lines.push_back(described(**record));
        return areThere;
    });
    pages.trim();
    return isSound && areThere ? std::optional(std::move(lines)) : std::nullopt;
}

Lines linesByEquality(Connection& connection, std::string const& column, Sought const& sought) {
    Lines lines;
    auto const keys = connection.use("SELECT id FROM t NOT INDEXED WHERE " + column + " = ? ORDER BY id");
    if (sought.kind == Sought::Kind::Integer) keys->bind(1, sought.integer);
    if (sought.kind == Sought::Kind::Text) keys->bind(1, sought.content);
    if (sought.kind == Sought::Kind::Bytes) keys->bind(1, std::as_bytes(std::span(sought.content)));
    while (keys->step()) lines.push_back(linesByStatement(connection, keys->integer(0), keys->integer(0)).at(0));
    return lines;
}

class TableWalks : public testing::Test {
protected:
    void create(std::string const& pragmas) {
        Connection(path).execute(pragmas + "; PRAGMA journal_mode = WAL; "
                                           "CREATE TABLE t (id INTEGER PRIMARY KEY, a INTEGER, b REAL, c TEXT, d BLOB, e); "
                                           "CREATE INDEX t_a ON t (a); CREATE INDEX t_c ON t (c); CREATE INDEX t_d ON t (d)");
    }
    /// Changes records at random: all kinds and widths of values, some longer than a page.
    void change(Connection& connection, int count) {
        auto const put = connection.use("INSERT OR REPLACE INTO t VALUES (?, ?, ?, ?, ?, ?)");
        connection.execute("BEGIN");
        for (int each = 0; each < count; ++each) {
            put->bind(1, static_cast<std::int64_t>(random() % 3000));
            for (int column = 2; column <= 6; ++column) bindAny(*put, column);
            put->run();
            if (random() % 4 == 0) connection.execute("DELETE FROM t WHERE id = " + std::to_string(random() % 3000));
        }
        connection.execute("COMMIT");
    }
    void bindAny(Statement& put, int column) {
        auto const kind = column == 6 ? random() % 5 : random() % 8 == 0 ? 0 : static_cast<unsigned>(column) - 1;
        texts_[static_cast<std::size_t>(column)].assign(random() % 20 == 0 ? random() % 9000 : random() % 40, 'x');
        std::string_view const text = texts_[static_cast<std::size_t>(column)];
        switch (kind) {
        case 0: return put.bindNull(column);
        case 1: return put.bind(column, static_cast<std::int64_t>(random() << 32 | random()) >> (random() % 64));
        case 2: return put.bind(column, random() % 2 == 0 ? static_cast<double>(random() % 100) : 1.0 / (1 + random() % 97));
        case 3: return put.bind(column, text);
        default: return put.bind(column, std::as_bytes(std::span(text)));
        }
    }
    std::pair<std::string, Sought> anySought() {
        static std::string const text(400, 'x');
        auto const content = std::string_view(text).substr(0, random() % 8 == 0 ? random() % 400 : random() % 40);
        switch (random() % 4) {
        case 0: return {"a", {Sought::Kind::Integer, static_cast<std::int64_t>(random() % 40) - 20}};
        case 1: return {"c", {Sought::Kind::Text, 0, content.empty() ? std::string_view() : content}};
        case 2: return {"d", {Sought::Kind::Bytes, 0, content}};
        default: return {"d", {Sought::Kind::Text, 0, content}}; // which none has
        }
    }
    static void beginReading(Connection& connection) {
        connection.noteCommits();
        connection.execute("BEGIN");
        connection.integer("SELECT count(*) FROM t");
    }

    tests::TemporaryFolder const folder;
    std::string const path = folder.path("a.db");
    std::mt19937 random{17};

private:
    std::array<std::string, 7> texts_; // bound
};

TEST_F(TableWalks, ReadWhatSQLiteReads) {
    for (auto const* pragmas : {"PRAGMA page_size = 512", "PRAGMA page_size = 4096", "PRAGMA page_size = 65536"}) {
        create(pragmas);
        Connection writer(path, {.synchronous = Synchronous::Off}), reader(path);
        writer.execute("PRAGMA wal_autocheckpoint = 0");
        SnapshotPages pages(reader, 128 << 10);
        for (int round = 0; round < 24; ++round) {
            change(writer, round % 4 == 0 ? 400 : 3);
            if (round % 7 == 2) writer.execute("PRAGMA wal_checkpoint(TRUNCATE)"); // else much of it stands in the log
            if (round == 5) writer.execute("PRAGMA wal_checkpoint(PASSIVE)"); // all in both
            beginReading(reader);
            for (auto const& [first, last] :
                 {std::pair<std::int64_t, std::int64_t>{-5, 9999}, {0, 2999}, {700, 701}, {1000, 2000}}) {
                auto const lines = linesByPages(reader, pages, first, last);
                ASSERT_TRUE(lines) << pragmas << ", round " << round;
                EXPECT_EQ(*lines, linesByStatement(reader, first, last)) << pragmas << ", round " << round;
            }
            for (int each = 0; each < 60; ++each) {
                auto const [column, sought] = anySought();
                if (!IndexWalk(pages, 2).canFind(sought)) continue;
                auto const lines = linesByIndex(reader, pages, column, sought);
                ASSERT_TRUE(lines) << pragmas << ", round " << round;
                EXPECT_EQ(*lines, linesByEquality(reader, column, sought)) << pragmas << ", round " << round << ", " << column;
            }
            reader.execute("COMMIT");
        }
        writer.execute("DROP TABLE t");
        std::filesystem::remove(path);
        for (auto const* end : {"-wal", "-shm"}) std::filesystem::remove(path + end);
    }
}

// Checkpoints and commits come while the pages are read; the transaction sees none of them.
TEST_F(TableWalks, SeeOneStateWhateverIsWrittenMeanwhile) {
    create("PRAGMA page_size = 1024");
    Connection writer(path, {.busySeconds = 0, .synchronous = Synchronous::Off}), reader(path);
    for (int round = 0; round < 12; ++round) {
        change(writer, 300);
        beginReading(reader);
        SnapshotPages pages(reader, 1 << 20), others(reader, 1 << 20);
        ASSERT_TRUE(pages.see());
        auto const wanted = linesByStatement(reader, 0, 2999);
        TableWalk walk(pages, rootOf(reader, "t"));
        Lines lines;
        EXPECT_TRUE(walk.read(0, 2999, [&](TableRecord const& record) {
            if (lines.size() % 100 == 50) {
                change(writer, 100);
                writer.integer("PRAGMA wal_checkpoint(RESTART)");
            }
            lines.push_back(described(record));
            return true;
        }));
        EXPECT_EQ(lines, wanted) << "round " << round;
        EXPECT_FALSE(others.see()) << "somebody has committed";
        reader.execute("COMMIT");
        EXPECT_FALSE(others.see()) << "there is no transaction";
    }
}

TEST_F(TableWalks, DamagedPagesEndAWalk) {
    create("PRAGMA page_size = 1024");
    {
        Connection writer(path);
        change(writer, 3000);
    }
    auto const whole = [&] {
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }();
    int ended = 0;
    for (int round = 0; round < 100; ++round) {
        auto damaged = whole;
        for (int each = 0; each < 40; ++each)
            damaged[1024 * 2 + random() % (damaged.size() - 1024 * 2)] = static_cast<char>(random());
        auto const other = folder.path("damaged.db");
        std::ofstream(other, std::ios::binary) << damaged;
        Connection reader(other);
        reader.noteCommits();
        reader.execute("BEGIN");
        SnapshotPages pages(reader, 1 << 20);
        ended += !linesByPages(reader, pages, 0, 2999);
        for (int each = 0; each < 20; ++each) {
            auto const [column, sought] = anySought();
            if (IndexWalk(pages, 2).canFind(sought)) ended += !linesByIndex(reader, pages, column, sought);
        }
    }
    EXPECT_GT(ended, 100);
}

} // namespace
} // namespace Tessarin::SQLite
