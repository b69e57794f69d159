// URLs, UUIDs, random numbers and Base64.
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/foundation/values/Base64.h"
#include "Tessarin/platform/foundation/values/NSData.h"
#include "Tessarin/platform/foundation/values/NSUUID.h"
#include "Tessarin/platform/foundation/values/Random.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

namespace Tessarin {
namespace {

TEST(NSURL, AppendingEncodesWhatAPathMayNotHold) {
    struct {
        char const *base, *component, *text, *path;
    // clang-format off
    } const rows[] = {
        {"/a", "b", "file:///a/b", "/a/b"}, {"/a/", "b/c d", "file:///a/b/c%20d", "/a/b/c d"}, {"/", "/b", "file:///b", "/b"},
        {"/a b", "50%.db", "file:///a%20b/50%25.db", "/a b/50%.db"}, {"/a", "%20", "file:///a/%2520", "/a/%20"},
        {"/a", "what?#;ü", "file:///a/what%3F%23%3B%C3%BC", "/a/what?#;ü"},
        {"/a", "x+y&z=(1)!~'*,:@$", "file:///a/x+y&z=(1)!~'*,:@$", "/a/x+y&z=(1)!~'*,:@$"},
        {"/a", "b/", "file:///a/b/", "/a/b"}
    };
    // clang-format on
    for (auto const& row : rows) {
        auto const url = NSURL::fileURLWithPath(row.base).URLByAppendingPathComponent(row.component);
        EXPECT_EQ(url.absoluteString(), row.text);
        EXPECT_EQ(url.path(), row.path);
        EXPECT_EQ(NSURL::URLWithString(url.absoluteString()), url);
        EXPECT_EQ(Value(url).as<NSURL>(), url);
    }
    EXPECT_EQ(NSURL::fileURLWithPath("x").path(), std::filesystem::current_path().native() + "/x");
    EXPECT_EQ(NSURL::URLWithString("http://h/a?q=1#f")->URLByAppendingPathComponent("b").absoluteString(), "http://h/a/b?q=1#f");
}

TEST(NSURL, TakesPathsApart) {
    struct {
        char const *text, *last, *extension, *without, *folder;
    } const rows[] = {
        {"file:///a/b.tar.gz", "b.tar.gz", "gz", "file:///a/b.tar", "file:///a/"},
        {"file:///a.d/b/", "b", "", "file:///a.d/b/", "file:///a.d/"},
        {"file:///a/b.x/", "b.x", "x", "file:///a/b/", "file:///a/"},
        {"file:///a/.hidden", ".hidden", "", "file:///a/.hidden", "file:///a/"},
        {"file:///a/end.", "end.", "", "file:///a/end.", "file:///a/"},
        {"file:///", "/", "", "file:///", "file:///"},
        {"http://h", "", "", "http://h", "http://h"},
    };
    for (auto const& row : rows) {
        auto const url = *NSURL::URLWithString(row.text);
        EXPECT_EQ(url.lastPathComponent(), row.last) << row.text;
        EXPECT_EQ(url.pathExtension(), row.extension) << row.text;
        EXPECT_EQ(url.URLByDeletingPathExtension().absoluteString(), row.without) << row.text;
        EXPECT_EQ(url.URLByDeletingLastPathComponent().absoluteString(), row.folder) << row.text;
    }
    EXPECT_EQ(NSURL::fileURLWithPath("/a/b/").URLByAppendingPathExtension("c d").absoluteString(), "file:///a/b.c%20d/");
}

TEST(NSURL, KnowsItsKindAndRefusesWhatIsNone) {
    EXPECT_TRUE(NSURL::URLWithString("FILE:///a")->isFileURL());
    EXPECT_TRUE(NSURL::URLWithString("file://localhost/a")->isFileURL());
    EXPECT_EQ(NSURL::URLWithString("file://localhost/a")->path(), "/a");
    EXPECT_FALSE(NSURL::URLWithString("filex:///a")->isFileURL());
    EXPECT_EQ(NSURL::URLWithString("https://u:p@[::1]:80/a")->host(), "[::1]");
    EXPECT_EQ(NSURL::URLWithString("https://h.example:80")->host(), "h.example");
    for (char const* text :
         {"", "a", "/a", ":a", "1a:b", "a b:c", "a:b c", "a:%", "a:%2", "a:%zz", "a:\xC3\xBC", "a:<b>", "a:\n"})
        EXPECT_EQ(NSURL::URLWithString(text), std::nullopt) << text;
}

TEST(NSUUID, TextFormReadsBackAndNothingElseDoes) {
    auto const uuid = NSUUID::UUIDWithString("e621e1f8-C36C-495A-93FC-0C247A3E6E5F");
    ASSERT_TRUE(uuid);
    EXPECT_EQ(uuid->UUIDString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(uuid->bytes()[15], 0x5F);
    EXPECT_EQ(Value(*uuid).as<NSUUID>(), uuid);
    for (char const* text : {"", "E621E1F8C36C495A93FC0C247A3E6E5F", "E621E1F8-C36C-495A-93FC-0C247A3E6E5",
                             "E621E1F8-C36C-495A-93FC-0C247A3E6E5G", "E621E1F8-C36C-495A-93FC--C247A3E6E5F",
                             "E621E1F8+C36C-495A-93FC-0C247A3E6E5F", "E621E1F8-C36C-495A-93FC-0C247A3E6E5F "})
        EXPECT_EQ(NSUUID::UUIDWithString(text), std::nullopt) << text;
    std::set<NSUUID> made;
    for (int i = 0; i < 100; ++i) {
        auto const random = *made.insert(NSUUID::UUID()).first;
        EXPECT_EQ(random.UUIDString()[14], '4');
        EXPECT_EQ(random.bytes()[8] >> 6, 2);
    }
    EXPECT_EQ(made.size(), 100u);
}

TEST(Random, BelowABoundEveryNumberIsEquallyLikely) {
    EXPECT_EQ(randomBelow(0), 0u);
    EXPECT_EQ(randomBelow(1), 0u);
    // With a bound of 3/4 of the range, a plain remainder would give the lower third twice as often.
    std::uint32_t const bound = 3u << 30;
    int low = 0;
    for (int i = 0; i < 6000; ++i) {
        auto const drawn = randomBelow(bound);
        ASSERT_LT(drawn, bound);
        low += drawn < bound / 3;
    }
    EXPECT_NEAR(low, 2000, 300); // eight standard deviations
}

TEST(Random, AForkedChildDrawsNumbersOfItsOwn) {
    static_cast<void>(NSUUID::UUID()); // the buffer is filled
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    auto const child = ::fork();
    if (child == 0) {
        std::uint64_t drawn = 0;
        randomBytes(std::as_writable_bytes(std::span{&drawn, 1}));
        ::_exit(::write(ends[1], &drawn, sizeof drawn) == sizeof drawn ? 0 : 1);
    }
    std::uint64_t theirs = 0, ours = 0;
    EXPECT_EQ(::read(ends[0], &theirs, sizeof theirs), static_cast<ssize_t>(sizeof theirs));
    randomBytes(std::as_writable_bytes(std::span{&ours, 1}));
    EXPECT_NE(ours, theirs);
    ::waitpid(child, nullptr, 0);
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST(Base64, PadsAndReadsOnlyWhatIsWellFormed) {
    for (auto const& [plain, text] :
         {std::pair{"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"\xFF\xFE\xFF", "//7/"}}) {
        auto const data = NSData::dataWithText(plain);
        EXPECT_EQ(base64FromBytes(data.bytes()), text);
        EXPECT_EQ(NSData(*bytesFromBase64(text)), data);
    }
    EXPECT_EQ(NSData(*bytesFromBase64(" Zm9v\n\tYg= =")).text(), "foob");
    for (char const* text : {"Z", "Zg", "Zg=", "Z===", "====", "Zg==Zg==", "Zg=v", "Zm9*", "="})
        EXPECT_EQ(bytesFromBase64(text), std::nullopt) << text;
}

} // namespace
} // namespace Tessarin
