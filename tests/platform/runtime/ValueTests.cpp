#include "Tessarin/platform/runtime/NSObject.h"
#include "Tessarin/platform/runtime/NumberText.h"
#include "Tessarin/platform/runtime/Value.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <thread>

namespace Tessarin {
namespace {

using Kind = Value::Kind;

Ref<NSObject> const object = make<NSObject>();
std::array<std::uint8_t, 16> const uuid{1, 2, 3};
std::string const longText = "a text that does not fit fourteen characters";

struct Row {
    Value value;
    Kind kind;
    char const* description; // null where it is not fixed
};

/// One value of each kind, no two of them equal.
// clang-format off
std::vector<Row> const values = {
    {Value(), Kind::Absent, "nil"}, {true, Kind::Boolean, "true"}, {-7, Kind::Integer, "-7"}, {0.25f, Kind::Float, "0.25"},
    {2.5, Kind::Double, "2.5"}, {Value::date(2.5), Kind::Date, "date(2.5)"}, {"", Kind::Text, ""},
    {"fourteen bytes", Kind::Text, "fourteen bytes"}, {longText, Kind::Text, longText.c_str()},
    {Value::uuid(uuid), Kind::UUID, "01020300-0000-0000-0000-000000000000"},
    {Value::data(std::vector<std::byte>(3)), Kind::Data, "data(3 bytes)"},
    {Value::url("file:///a"), Kind::URL, "file:///a"}, {*Decimal::fromText("2.50"), Kind::Decimal, "2.5"},
    {object, Kind::Object, nullptr}, {List{1, "a"}, Kind::List, "[1, \"a\"]"}, {ValueSet{Value(1)}, Kind::Set, "{1}"},
    {Dictionary{{"k", 1}}, Kind::Dictionary, "{\"k\": 1}"},
    {ValueDictionary{{Value(1), Value("x")}}, Kind::ValueDictionary, "{1: \"x\"}"}};
// clang-format on

TEST(Value, EveryKindSurvivesCopyMoveAndAssignment) {
    for (auto const& row : values) {
        SCOPED_TRACE(row.value.description());
        EXPECT_EQ(row.value.kind(), row.kind);
        if (row.description) {
            EXPECT_EQ(row.value.description(), row.description);
        }
        Value copy = row.value, other = "something else that is long";
        EXPECT_EQ(copy, row.value);
        EXPECT_EQ(copy.hash(), row.value.hash());
        other = copy;
        Value const moved = std::move(copy);
        EXPECT_TRUE(copy.isAbsent());
        EXPECT_EQ(moved, other);
        other = *&other;
        EXPECT_EQ(moved, other);
        for (auto const& another : values) EXPECT_EQ(row.value == another.value, &row == &another) << another.value;
    }
    EXPECT_TRUE(Value(Ref<NSObject>()).isAbsent());
}

TEST(Value, NumbersAreOneFamilyAndCompareExactly) {
    auto const big = (std::int64_t{1} << 53) + 1;
    EXPECT_EQ(Value(1), Value(true));
    EXPECT_EQ(Value(1), Value(1.0f));
    EXPECT_EQ(Value(1).hash(), Value(1.0).hash());
    EXPECT_NE(Value(big), Value(static_cast<double>(big)));
    EXPECT_EQ(Value(INT64_MIN), Value(-0x1p63));
    EXPECT_NE(Value(INT64_MAX), Value(0x1p63));
    EXPECT_NE(Value(std::nan("")), Value(std::nan("")));
    EXPECT_NE(Value(1), Value("1"));
    EXPECT_NE(Value(0), Value());
    EXPECT_NE(Value(5), Value(Decimal(5))) << "a decimal is of another kind";

    struct {
        double from;
        std::int64_t to;
    } const conversions[] = {{2.9, 2},          {-2.9, -2},         {1e300, INT64_MAX}, {-1e300, INT64_MIN},
                             {std::nan(""), 0}, {0x1p63, INT64_MAX}};
    for (auto const& row : conversions) EXPECT_EQ(Value(row.from).integer(), row.to) << row.from;
    EXPECT_EQ(Value("7").integer(), 0);
    EXPECT_FALSE(Value("true").boolean());
    EXPECT_EQ(Value(*Decimal::fromText("2.5")).number(), 2.5);
}

TEST(Value, OrdersWhatCanBeCompared) {
    auto const infinity = std::numeric_limits<double>::infinity();
    // clang-format off
    Value const ascending[][2] = {
        {Value(), false}, {1, 1.5}, {INT64_MAX - 1, INT64_MAX}, {*Decimal::fromText("1.25"), 1.5}, {Decimal(1), infinity},
        {-infinity, Decimal(1)}, {Value::date(1), Value::date(2)}, {"Z", "a"}, {"a", "aa"},
        {Value::url("a:"), Value::url("b:")}, {Value::data(std::vector<std::byte>{}), Value::data(std::vector<std::byte>(1))}};
    // clang-format on
    for (auto const& [less, more] : ascending) {
        EXPECT_TRUE(compareValues(less, more) < 0) << less << " < " << more;
        EXPECT_TRUE(compareValues(more, less) > 0) << less << " < " << more;
        EXPECT_TRUE(compareValues(less, less) == 0);
    }
    EXPECT_EQ(compareValues("1", 1), std::partial_ordering::unordered);
    EXPECT_EQ(compareValues(object, make<NSObject>()), std::partial_ordering::unordered);
}

TEST(Value, ReadsAsATypeOnlyWhatIsOfIt) {
    EXPECT_EQ(Value(3).as<int>(), 3);
    EXPECT_EQ(Value(3).as<double>(), 3.0);
    EXPECT_EQ(Value(3.0).as<int>(), std::nullopt);
    EXPECT_EQ(Value(300).as<std::int8_t>(), std::nullopt) << "it does not fit";
    EXPECT_EQ(Value(-1).as<std::uint32_t>(), std::nullopt);
    EXPECT_EQ(Value(3).as<std::string>(), std::nullopt);
    EXPECT_EQ(Value(3).as<bool>(), std::nullopt);
    EXPECT_EQ(Value("x").as<std::string>(), "x");
    EXPECT_EQ(Value(object).as<Ref<NSObject>>(), object);
    EXPECT_EQ(Value().as<Ref<NSObject>>(), std::nullopt);
    EXPECT_EQ(Value(std::optional<int>()), Value());
}

TEST(Value, SharesItsContentAndReleasesItOnce) {
    WeakRef<NSObject> watched;
    {
        auto const kept = make<NSObject>();
        watched = kept;
        Value const list = List{kept, List{kept}};
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i)
            threads.emplace_back([list] {
                for (int round = 0; round < 1000; ++round) {
                    Value const copy = list;
                    ASSERT_EQ(&copy.list(), &list.list()) << "a copy shares the list";
                }
            });
        for (auto& thread : threads) thread.join();
        EXPECT_EQ(kept.use_count(), 3);
    }
    EXPECT_TRUE(watched.expired());
}

TEST(Text, ComparesByCharactersInlineOrShared) {
    for (std::string const text : {"", "a", "fourteen bytes", "fifteen  bytes.", "with a \0 inside it"}) {
        Text const made{text};
        Text copy = made;
        EXPECT_EQ(copy.view(), text);
        EXPECT_EQ(copy.size(), text.size());
        Value value{std::move(copy)};
        EXPECT_TRUE(copy.empty());
        EXPECT_EQ(value.text(), text);
        EXPECT_EQ(value.toText(), made);
        EXPECT_EQ(std::hash<Text>{}(made), std::hash<std::string_view>{}(text));
    }
    EXPECT_LT(Text("a"), Text(longText));
    EXPECT_EQ(Text(longText), longText.c_str());
}

TEST(Dictionary, AnswersAlikeWhenSmallAndWhenIndexed) {
    Dictionary dictionary;
    for (int count = 1; count <= 40; ++count) {
        auto const key = "key " + std::to_string(count);
        EXPECT_EQ(dictionary.find(key), nullptr);
        dictionary.set(key, count);
        dictionary.set(key, count * 2); // replaces
        for (int at = 1; at <= count; ++at)
            ASSERT_EQ(dictionary["key " + std::to_string(at)], Value(at * 2)) << at << " of " << count;
        ASSERT_EQ(dictionary.size(), static_cast<std::size_t>(count));
    }
    Dictionary reversed;
    for (int at = 40; at >= 1; --at) reversed.set("key " + std::to_string(at), at * 2);
    EXPECT_EQ(dictionary, reversed) << "order does not count";
    for (int at = 1; at <= 40; at += 2) EXPECT_TRUE(dictionary.erase("key " + std::to_string(at)));
    EXPECT_FALSE(dictionary.erase("key 1"));
    EXPECT_NE(dictionary, reversed);
    for (int at = 1; at <= 40; ++at) ASSERT_EQ(dictionary.contains("key " + std::to_string(at)), at % 2 == 0) << at;
    auto const copy = dictionary;
    dictionary["key 2"] = "changed";
    EXPECT_EQ(copy["key 2"], Value(4));
    EXPECT_EQ(dictionary.begin()->value, Value("changed")) << "entries keep their order";
    EXPECT_TRUE(copy["none"].isAbsent());
}

TEST(Decimal, ReadsWritesAndOrders) {
    std::pair<char const*, char const*> const texts[] = {
        {"12.50", "12.5"},     {"-0.0003", "-0.0003"},
        {"3e-7", "0.0000003"}, {"+7", "7"},
        {"1E+3", "1000"},      {"000", "0"},
        {"-0", "0"},           {".5", "0.5"},
        {"5.", "5"},           {"12345678901234567890123456789012345678", "12345678901234567890123456789012345678"}};
    for (auto const& [from, to] : texts) EXPECT_EQ(Decimal::fromText(from).value().text(), to);
    for (auto const* text : {"123456789012345678901234567890123456789", "", ".", "1e", "1e+-3", "1.2.3", "0x1", " 1"})
        EXPECT_FALSE(Decimal::fromText(text)) << text;
    EXPECT_EQ(Decimal::fromDouble(0.1).text(), "0.1");
    EXPECT_EQ(Decimal::fromDouble(0.1).doubleValue(), 0.1);
    EXPECT_EQ(*Decimal::fromText("100"), Decimal(100));
    char const* const ascending[] = {"-100", "-50", "-5.5", "-0.05", "0", "0.05", "0.5", "5", "5.45", "5.5", "50"};
    for (std::size_t i = 0; i < std::size(ascending); ++i)
        for (std::size_t j = 0; j < std::size(ascending); ++j)
            EXPECT_EQ(*Decimal::fromText(ascending[i]) < *Decimal::fromText(ascending[j]), i < j)
                << ascending[i] << " < " << ascending[j];
}

TEST(NumberText, IsTheShortestThatReadsBack) {
    using Limits = std::numeric_limits<double>;
    // clang-format off
    std::pair<double, char const*> const rows[] = {
        {0, "0.0"}, {-0.0, "-0.0"}, {12, "12.0"}, {0.25, "0.25"}, {0.1 + 0.2, "0.30000000000000004"}, {-1.5, "-1.5"},
        {1e-4, "0.0001"}, {9.9e-5, "9.9e-05"}, {1e-5, "1e-05"}, {1e15, "1000000000000000.0"},
        {9007199254740993.0, "9007199254740992.0"}, {1e16, "1e+16"}, {1.5e300, "1.5e+300"}, {Limits::denorm_min(), "5e-324"},
        {Limits::max(), "1.7976931348623157e+308"}, {Limits::infinity(), "inf"}, {-Limits::infinity(), "-inf"},
        {-Limits::quiet_NaN(), "nan"}};
    // clang-format on
    for (auto const& [value, text] : rows) EXPECT_EQ(shortestText(value), text);
}

/// Of each kind of collection: at first with `inner`, in the end `levels` in one another.
std::vector<Value> nested(std::size_t levels, Value inner) {
    std::vector<Value> all(5, inner);
    for (std::size_t level = 0; level < levels; ++level) {
        all[0] = List{1, all[0]};
        all[1] = Dictionary{{"a", all[1]}};
        all[2] = ValueSet{all[2]};
        all[3] = ValueDictionary{{1, all[3]}};
        all[4] = ValueDictionary{{all[4], 1}};
    }
    return all;
}

TEST(Value, NestedToAnyDepthItIsWalkedWithoutTheStack) {
    for (std::size_t const levels : {99, 101, 100'000}) {
        auto const all = nested(levels, 1), same = nested(levels, 1), other = nested(levels, 2), deeper = nested(levels + 1, 1);
        for (std::size_t at = 0; at < all.size(); ++at) {
            EXPECT_EQ(all[at] == same[at], true) << at;
            EXPECT_EQ(all[at].hash(), same[at].hash());
            EXPECT_EQ(all[at] == other[at], false) << at;
            EXPECT_EQ(all[at] == deeper[at], false) << at;
            EXPECT_EQ(all[at].description().find("…") != std::string::npos, levels == 100'000);
        }
    }
    // Of several members with one hash the one that is the same is found.
    ValueSet const some{Dictionary{{"a", 1}}, Dictionary{{"b", 1}}, List{nested(200, 1)[0]}};
    EXPECT_EQ(Value(some), Value(ValueSet{List{nested(200, 1)[0]}, Dictionary{{"b", 1}}, Dictionary{{"a", 1}}}));
    EXPECT_FALSE(Value(some) == Value(ValueSet{List{nested(200, 1)[0]}, Dictionary{{"b", 2}}, Dictionary{{"a", 1}}}));
}

} // namespace
} // namespace Tessarin
