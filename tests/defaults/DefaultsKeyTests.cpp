#include "Tessarin/platform/foundation/preferences/NSUserDefaults.h"

#include "tests/support/TemporaryFolder.h"
#include <gtest/gtest.h>

namespace Tessarin {
namespace {

DefaultsKey<std::string> const theme("theme");
DefaultsKey<std::int64_t> const volume("volume");
DefaultsKey<float> const ratio("ratio");
DefaultsKey<double> const width("width");
DefaultsKey<bool> const isMuted("isMuted");
DefaultsKey<std::vector<std::string>> const recent("recent");
DefaultsKey<NSData> const seal("seal");
DefaultsKey<NSDate> const opened("opened");
DefaultsKey<int> const count("volume");
DefaultsKey<std::uint8_t> const small("volume");
enum class Side : std::int16_t { Left = -1, Right = 1 };
DefaultsKey<Side> const side("volume");

/// The standard store is one for the process, so its folder must not change from test to test.
class DefaultsKeys : public testing::Test {
protected:
    DefaultsKeys() : home_("XDG_CONFIG_HOME", folder_.path()) {}
    void TearDown() override {
        NSUserDefaults::setCurrentDefaultsGroup("");
        for (auto const* key : {"theme", "volume", "ratio", "width", "isMuted", "recent", "seal", "opened"})
            standard_.removeValueForKey(key);
        standard_.synchronize();
    }

    tests::TemporaryFolder folder_;
    tests::Environment const home_;
    NSUserDefaults& standard_ = *NSUserDefaults::standardUserDefaults();
    NSUserDefaults const& read_ = standard_; // whose subscripts give values, not slots
};

TEST_F(DefaultsKeys, EachTypeReadsWhatWasSetAndItsOwnNothing) {
    auto const check = [&](auto const& key, auto const& nothing, auto const& value) {
        EXPECT_EQ(read_[key], nothing);
        standard_[key] = value;
        EXPECT_EQ(read_[key], value);
    };
    check(theme, "", "dark");
    check(volume, 0, 3);
    check(ratio, 0, 0.1f);
    check(width, 0, 0.1);
    check(isMuted, false, true);
    check(recent, std::vector<std::string>(), std::vector<std::string>{"a", "b"});
    check(seal, std::nullopt, NSData::dataWithText("x"));
    check(opened, std::nullopt, NSDate::distantPast());
    EXPECT_EQ(standard_.objectForKey("ratio").kind(), Value::Kind::Float);
    std::int64_t const copy = standard_[volume];
    EXPECT_EQ(copy, 3);
    standard_[opened] = std::nullopt;
    EXPECT_FALSE(standard_.hasValueForKey("opened"));
    static_assert(!std::is_convertible_v<decltype(standard_[volume])&, std::int64_t>, "a slot that is kept must not read");
}

TEST_F(DefaultsKeys, DataAndDatesAreOnlyWhatIsOfTheirKind) {
    standard_.setObject("a text", "seal");
    standard_.setObject(12.0, "opened");
    EXPECT_EQ(read_[seal], std::nullopt);
    EXPECT_EQ(read_[opened], std::nullopt);
    EXPECT_TRUE(standard_.hasValueForKey("seal"));
}

TEST_F(DefaultsKeys, IntegersOfAnyWidthAndEnumerationsAndWhatIsReadWhereItStands) {
    standard_[count] = 300;
    EXPECT_EQ(read_[small], 255) << "the largest that fits";
    standard_[volume] = INT64_MIN;
    EXPECT_EQ(read_[count], INT32_MIN);
    standard_[side] = Side::Left;
    EXPECT_EQ(read_[side], Side::Left);
    EXPECT_EQ(standard_.objectForKey("volume"), Value(-1));
    standard_[count] += 8;
    EXPECT_TRUE(standard_[count] == 7 && standard_[theme] == "");
    standard_[theme] = "dark";
    standard_[theme] += "er";
    EXPECT_TRUE(standard_[theme] == "darker" && standard_[theme] != "dark");
    NSUserDefaults::set(Side::Right, side);
    EXPECT_EQ(NSUserDefaults::get(side), Side::Right);
}

TEST_F(DefaultsKeys, StaticOperationsFollowTheGroupAndWriteAtOnce) {
    auto const file = [&] { return folder_.read("org.example.suite/defaults.toml"); };
    standard_[volume] = 1;
    NSUserDefaults::setCurrentDefaultsGroup("org.example.suite");
    EXPECT_EQ(NSUserDefaults::get(volume), 0);
    NSUserDefaults::set(7, volume);
    NSUserDefaults::set({}, theme);
    EXPECT_EQ(file(), "volume = 7\n");
    EXPECT_EQ(read_[volume], 1);
    EXPECT_EQ(NSUserDefaults::defaults(), NSUserDefaults::s_sharedUserDefaults());
    (*NSUserDefaults::defaults())[volume] = 8;
    EXPECT_EQ(NSUserDefaults::get(volume), 8);
    EXPECT_EQ(file(), "volume = 7\n") << "a subscript does not write at once";
    EXPECT_TRUE(NSUserDefaults::type().hasValueForKey("volume"));
    NSUserDefaults::set(std::nullopt, volume);
    EXPECT_FALSE(NSUserDefaults::type().hasValueForKey("volume"));
    EXPECT_EQ(file(), "");
    NSUserDefaults::set("dark", theme);
    NSUserDefaults::type().removeValueForKey("theme");
    EXPECT_EQ(file(), "");

    NSUserDefaults::setCurrentDefaultsGroup("a/b");
    EXPECT_EQ(NSUserDefaults::s_sharedUserDefaults(), nullptr);
    EXPECT_EQ(NSUserDefaults::get(volume), 1);
}

} // namespace
} // namespace Tessarin
