#include "StoreFixture.h"
#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/sqlite/Connection.h"

#include <map>
#include <random>

namespace Tessarin::tests {
namespace {

/// Books that are looked up again and again, here, while others write the file.
class BooksLookedUp : public testing::Test {
protected:
    BooksLookedUp() : here(folder.url("a.db"), libraryModel().build()), there(folder.url("a.db"), libraryModel().build()) {
        std::vector<RecordChange> changes{here.insertion("Author", author = here.newKey(), {})};
        for (int at = 0; at < 400; ++at) {
            auto const key = here.newKey();
            codes[key] = codeOf(at);
            changes.push_back(here.insertion("Book", key, {{"code", codes[key]}, {"author", Value(at % 3 == 0 ? author : 0)}}));
        }
        EXPECT_FALSE(here.save(std::move(changes)));
    }

    static std::string codeOf(int at) { return (at % 2 == 0 ? "book " : "Book ") + std::to_string(at * 7919 % 1000); }
    std::vector<RecordKey> found(std::string const& code, std::size_t limit = 0) {
        auto const condition = NSPredicate::predicateWithFormat("code == %@", code);
        StoreAnswer answer;
        EXPECT_FALSE(here.store->fetch(
            {.entity = &here.entity("Book"), .predicate = condition.get(), .sortDescriptors = {}, .limit = limit}, answer));
        for (auto const& row : answer.rows) EXPECT_EQ(here.value(row, "code"), Value(code));
        return keysOf(answer.rows);
    }
    std::vector<RecordKey> expected(std::string const& code) const {
        std::vector<RecordKey> keys;
        for (auto const& [key, known] : codes)
            if (known == code) keys.push_back(key);
        return keys;
    }
    void write(std::string const& sql) { SQLite::Connection(folder.path("a.db")).execute(sql); }

    TemporaryFolder folder;
    OpenStore here, there;
    RecordKey author = 0;
    std::map<RecordKey, std::string> codes;
};

TEST_F(BooksLookedUp, AreFoundAsAnybodyHasLeftThem) {
    std::mt19937 random{5};
    for (int round = 0; round < 150; ++round) {
        auto const place = std::next(codes.begin(), random() % codes.size());
        auto const row = there.read("Book", place->first);
        auto const code = "new " + std::to_string(round);
        switch (random() % 3) {
        case 0:
            ASSERT_FALSE(there.save({there.deletion(row)}));
            codes.erase(place);
            break;
        case 1:
            ASSERT_FALSE(there.save({there.update(row, {{"code", code}})}));
            place->second = code;
            break;
        default: {
            auto const key = there.newKey();
            ASSERT_FALSE(there.save({there.insertion("Book", key, {{"code", code}, {"author", Value(author)}})}));
            codes[key] = code;
        }
        }
        if (round % 40 == 20) write("PRAGMA wal_checkpoint(TRUNCATE)");
        for (auto const& wanted : {code, codeOf(static_cast<int>(random() % 400)), std::string("none")})
            EXPECT_EQ(found(wanted), expected(wanted)) << "round " << round << ": " << wanted;
        auto const key = std::next(codes.begin(), random() % codes.size())->first;
        EXPECT_EQ(here.value(here.read("Book", key), "code"), Value(codes[key])) << "round " << round;
        auto members = here.members("Author", "books", author);
        EXPECT_TRUE(std::ranges::is_sorted(members)) << "round " << round;
        EXPECT_EQ(members, there.members("Author", "books", author)) << "round " << round;
    }
}

TEST_F(BooksLookedUp, AreSavedWhateverIsNamedLikeTheRowsThatAProgramGives) {
    write("CREATE VIEW tessarin_rows AS SELECT 1 AS c0, 1 AS c1, 1 AS c2, 1 AS c3, 1 AS c4, 1 AS c5, 1 AS c6 WHERE 0");
    OpenStore fresh(folder.url("a.db"), libraryModel().build());
    std::vector<RecordChange> changes;
    for (auto const* store : {&here, &fresh})
        for (int each = 0; each < 20; ++each) {
            auto const key = here.newKey();
            codes[key] = "late " + std::to_string(key);
            changes.push_back(store->insertion("Book", key, {{"code", codes[key]}}));
        }
    std::vector<RecordChange> const theirs(changes.begin() + 20, changes.end());
    changes.resize(20);
    ASSERT_FALSE(here.save(std::move(changes)));
    ASSERT_FALSE(fresh.save(theirs));
    EXPECT_EQ(here.fetch("Book").size(), codes.size());
}

// What another tool wrote may be of a kind that the library never writes, and its indexes may order otherwise.
TEST_F(BooksLookedUp, AreFoundBySQLiteWhereSomethingIsOdd) {
    auto const first = codes.begin()->first;
    for (auto const& [sql, wanted, keys] : std::initializer_list<std::tuple<std::string, std::string, std::vector<RecordKey>>>{
             {"UPDATE Book SET version = '7', code = 'odd' WHERE id = " + std::to_string(first), "odd", {first}},
             {"UPDATE Book SET code = x'414243' WHERE id = " + std::to_string(first + 1), "ABC", {}},
             {"DROP INDEX \"Book.unique.code\"; CREATE INDEX other ON Book (code DESC)", codeOf(2), expected(codeOf(2))},
             {"DROP INDEX other; CREATE INDEX other ON Book (code COLLATE NOCASE)", codeOf(3), expected(codeOf(3))},
             {"ALTER TABLE Book ADD COLUMN other INTEGER DEFAULT 5", codeOf(4), expected(codeOf(4))}}) {
        for (int each = 0; each < 12; ++each) found(codeOf(each)); // the pages are known
        write(sql);
        for (int each = 0; each < 3; ++each) EXPECT_EQ(found(wanted), keys) << sql;
        EXPECT_EQ(found(codeOf(9), 1), expected(codeOf(9))) << sql;
    }
}

} // namespace
} // namespace Tessarin::tests
