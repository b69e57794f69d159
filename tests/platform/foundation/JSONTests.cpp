#include "Tessarin/platform/foundation/json/JSON.h"
#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/platform/foundation/values/NSError.h"

#include "tests/support/TemporaryFolder.h"
#include <gtest/gtest.h>
#include <limits>

namespace Tessarin {
namespace {

template <class Work> bool refuses(Work work) {
    try {
        work();
    } catch (ErrorException const& failure) {
        return failure.error()->domain() == NSFormatErrorDomain;
    }
    return false;
}

TEST(JSON, ReadsEveryKindAndWritesItBack) {
    struct {
        char const* text;
        Value value;
        char const* written; // null: the same text
    } const rows[] = {
        {"1", 1, nullptr},
        {"-0", 0, "0"},
        {"1e3", 1000.0, "1000"},
        {"0.1", 0.1, nullptr},
        {"9223372036854775807", INT64_MAX, nullptr},
        {"-9223372036854775808", INT64_MIN, nullptr},
        {"9223372036854775808", 0x1p63, nullptr},
        {"123456789012345678901234", 123456789012345678901234.0, "1.2345678901234569e+23"},
        {"3.141592653589793238462643383279", 3.141592653589793, "3.141592653589793"},
        {"[52.520008000000000001, -10.000000000000000000e-1 ]", List{52.520008, -1.0}, "[52.520008,-1]"},
        {"null", Value(), nullptr},
        {"[true,false,null]", List{true, false, Value()}, nullptr},
        {R"("é\u00e9\ud83d\ude00\"\\\/\n\u0001")", "éé😀\"\\/\n\x01", R"("éé😀\"\\/\n\u0001")"},
        {R"({"a":1,"a key of more than fourteen bytes":[{}],"a":2,"":3})",
         Dictionary{{"a", 2}, {"a key of more than fourteen bytes", List{Dictionary{}}}, {"", 3}},
         R"({"a":2,"a key of more than fourteen bytes":[{}],"":3})"},
        {R"([{"a\\":1},{"a\"b":2},{"a\"b":3},{"\u0061\"b":4}])",
         List{Dictionary{{"a\\", 1}}, Dictionary{{"a\"b", 2}}, Dictionary{{"a\"b", 3}}, Dictionary{{"a\"b", 4}}},
         R"([{"a\\":1},{"a\"b":2},{"a\"b":3},{"a\"b":4}])"},
        {" [ ] ", List{}, "[]"},
    };
    for (auto const& row : rows) {
        auto const value = JSON::parse(row.text);
        EXPECT_EQ(value.kind(), row.value.kind()) << row.text;
        EXPECT_EQ(value, row.value) << row.text;
        EXPECT_EQ(JSON::text(value), row.written ? row.written : row.text);
    }
}

TEST(JSON, RefusesIllFormedText) {
    static char const* const texts[] = {
        "", " ", "[", "[1", "[1,", "[1,]", "[,1]", "[1 2]", "[1]]", "[1}", "[1,\"a]", "]", "{", "{\"a\"", "{\"a\":",
        "{\"a\":1", "{\"a\":1,}", "{\"a\" 1}", "{a:1}", "{\"a\":1 \"b\":2}", "{1:2}", "nul", "nulll", "truex", "fals",
        "[tru]", "[nul]", "1.2.3", "01", "+1", "-", "1e", "[1.]", "[.5]", "NaN", "1 2", "{} {}", "\"a", "\"a\nb\"",
        "\"\\x\"", "\"\\ud800\"", "'a'", "\"\xff\"", "// c\n1"};
    for (std::string const text : texts) EXPECT_TRUE(refuses([&] { JSON::parse(text); })) << text;
    std::string const deep(100'000, '[');
    EXPECT_TRUE(refuses([&] { JSON::parse(deep + std::string(100'000, ']')); }));
    auto const text = std::string(500, '[') + std::string(500, ']');
    EXPECT_EQ(JSON::text(JSON::parse(text)), text);
    Value nested;
    for (int level = 0; level < 100'000; ++level) nested = Dictionary{{"a", nested}};
    EXPECT_TRUE(refuses([&] { JSON::text(nested); }));
}

TEST(JSON, HandsOverTheElementsOfATextOrFile) {
    tests::TemporaryFolder const folder;
    auto const url = NSURL::fileURLWithPath(folder.write("a.json", "\xEF\xBB\xBF[{\"n\":1},[2],3]"));
    List elements;
    JSON::forEachElement(url, [&](Value element) { elements.push_back(std::move(element)); });
    EXPECT_EQ(elements, (List{Dictionary{{"n", 1}}, List{2}, 3}));
    EXPECT_EQ(JSON::contentsOfURL(url).list(), elements);
    List before;
    EXPECT_TRUE(refuses(
        [&] { JSON::forEachElement("[{\"n\":1},[2],3,}]", [&](Value element) { before.push_back(std::move(element)); }); }));
    EXPECT_EQ(before, elements);
    folder.write("a.json", "[1,2");
    EXPECT_TRUE(refuses([&] { JSON::forEachElement(url, [](Value) {}); }));
    folder.write("a.json", "{\"n\":1}");
    EXPECT_TRUE(refuses([&] { JSON::forEachElement(url, [](Value) {}); }));
    EXPECT_THROW(JSON::contentsOfURL(NSURL::fileURLWithPath(folder.path("none"))), ErrorException);
}

TEST(JSON, RefusesToWriteWhatItCannotSay) {
    EXPECT_EQ(JSON::text(List{0.1f, *Decimal::fromText("1.50")}), "[0.1,1.5]");
    for (Value const& value : {Value(NSDate::now()), Value(std::numeric_limits<double>::infinity()), Value(ValueSet{}),
                               Value(ValueDictionary{{1, 2}}), Value(List{Value::url("a:")})})
        EXPECT_TRUE(refuses([&] { JSON::text(value); })) << value;
}

} // namespace
} // namespace Tessarin
