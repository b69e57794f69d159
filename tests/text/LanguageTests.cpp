// What depends on languages; e-mail addresses; texts and values as numbers.
#include "Tessarin/platform/foundation/predicates/TextFolding.h"
#include "Tessarin/text/EmailAddress.h"
#include "Tessarin/text/NumberLike.h"

#include "tests/support/TemporaryFolder.h"
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <tuple>

namespace Tessarin {
namespace {

TEST(Text, FormsKeepTheBytesThatAreNotUTF8) {
    EXPECT_EQ(Text::normalized("e\u0301\xFF"
                               "e\u0301"),
              "é\xFF"
              "é");
    EXPECT_EQ(Text::normalized("é", NormalForm::D), "e\u0301");
    EXPECT_EQ(Text::normalized("ﬁé", NormalForm::KC), "fié");
    EXPECT_EQ(Text::normalized("ﬁé", NormalForm::KD), "fie\u0301");
    EXPECT_EQ(Text::folded("STRASSE\xC3Été"), "strasse\xC3été");
    EXPECT_EQ(Text::folded("Straße"), Text::folded("STRASSE"));
    EXPECT_EQ(Text::folded("ÉTÉ\xFF", TextOptions::CaseInsensitive | TextOptions::DiacriticInsensitive), "ete\xFF");
    EXPECT_EQ(Text::capitalized("hello wORLD, it's é\xFFte", "en"), "Hello World, It's É\xFFTe");
    EXPECT_EQ(Text::capitalized("istanbul ilk", "tr"), "İstanbul İlk");
    EXPECT_EQ(Text::capitalized("ijsland", "nl"), "IJsland");
    tests::Environment const all("LC_ALL", {}), type("LC_CTYPE", "tr_TR.UTF-8");
    EXPECT_EQ(Text::capitalized("ilk"), "İlk");
    tests::Environment const none("LC_ALL", "C");
    EXPECT_EQ(Text::capitalized("ilk"), "Ilk");
}

TEST(Text, SearchIsAsReadersOfTheLanguageSearch) {
    struct {
        char const *locale, *text, *part;
        bool isThere;
    // clang-format off
    } const rows[] = {
        {"C", "Café au lait", "CAFE", true}, {"en_US.UTF-8", "Ångström", "angst", true},
        {"sv_SE.UTF-8", "Ångström", "angst", false}, {"sv_SE.UTF-8", "Ångström", "ånGS", true},
        {"de_DE.UTF-8", "Straße", "STRASS", true}, {"C", "a", "", true}, {"C", "", "a", false},
        {"no such locale", "Été", "ete", true}, {"C", "a\xFFz", "Z", true}, {"C", "a\xFF", "\xFE", false},
        {"C", "a\xFE\xFFz", "A\xFE\xFFZ", true}, {"C", "\uFFFD", "\xFF", false}, {"C", "e\u0301", "É", true}};
    // clang-format on
    for (auto const& row : rows) {
        tests::Environment const locale("LC_ALL", row.locale);
        EXPECT_EQ(Text::containsLocalized(row.text, row.part), row.isThere) << row.locale << " " << row.text << " " << row.part;
    }
}

TEST(Text, NamesAreInTheOrderOfTheirNumbers) {
    char const* const sorted[] = {"", "File", "file 1", "file 9", "file 10", "file 10b", "file 100", "file \xFF", "g"};
    for (auto a = std::begin(sorted); a != std::end(sorted); ++a)
        for (auto b = std::begin(sorted); b != std::end(sorted); ++b)
            EXPECT_EQ(Text::compareNaturally(*a, *b), std::weak_ordering{a <=> b}) << *a << " " << *b;
    for (auto const& [locale, isLast] : {std::pair("sv_SE.UTF-8", true), {"de_DE.UTF-8", false}, {"sv_SE.UTF-8", true}}) {
        tests::Environment const set("LC_ALL", locale);
        EXPECT_EQ(Text::compareNaturally("Ä", "Z") > 0, isLast) << locale << ": the user's language as it is now";
    }
}

TEST(EmailAddress, IsWhatBrowsersAccept) {
    std::string const label(63, 'a');
    std::string const accepted[] = {"ada@example.org", "a.!#$%&'*+/=?^_`{|}~-z@x", ".a..b.@example", "a@1-2.3",
                                    "a@" + label + ".b"};
    std::string const international[] = {"a@bücher.example", "a@B\u00DCCHER.example", "a@例え。jp"};
    // clang-format off
    std::string const refused[] = {
        "a@" + label + "a.b", "a@b.", "a@.b", "a@b..c", "a@-b", "a@b-", "a@b_c", "@b", "a@", "a", "", "a@b@c", "\"a b\"@c",
        " a@b", "a@b\n", "a@b c", "é@b", "a@☃\u200D.example", "a@ü\xFF.de", "a@-ü.de", "a@ü.",
        "a@" + std::string(2'000, 'a') + "ü", std::string("a\0@b", 4)};
    // clang-format on
    auto const isInternational = [](std::string_view text) { return isEmailAddress(text, InternationalDomains::Yes); };
    for (auto const& text : accepted) EXPECT_TRUE(isEmailAddress(text) && isInternational(text)) << text;
    for (auto const& text : international) EXPECT_TRUE(!isEmailAddress(text) && isInternational(text)) << text;
    for (auto const& text : refused) EXPECT_FALSE(isEmailAddress(text) || isInternational(text)) << text;
}

struct Volume final : IntLike, FloatLike, DoubleLike {
    std::optional<std::int64_t> integer() const override { return 7; }
    std::optional<float> floatNumber() const override { return 7.5F; }
    std::optional<double> number() const override { return 7.25; }
};
static_assert(ReadsAsInt<int> && ReadsAsInt<float> && ReadsAsInt<Value> && ReadsAsInt<std::string> && ReadsAsInt<Text> &&
              ReadsAsInt<char[3]>);
static_assert(ReadsAsFloat<long> && ReadsAsFloat<Volume> && ReadsAsDouble<float> && ReadsAsDouble<Volume> && ReadsAsInt<Volume>);
static_assert(!ReadsAsInt<void*> && !ReadsAsDouble<std::vector<int>> && !ReadsAsFloat<Ref<NSObject>>);

TEST(NumberLike, WhatATypeCannotHoldIsAbsent) {
    constexpr auto none = std::optional<std::int64_t>{};
    EXPECT_EQ(integerOf(Volume{}), 7);
    EXPECT_EQ(floatOf(Volume{}), 7.5F);
    EXPECT_EQ(doubleOf(Volume{}), 7.25);
    EXPECT_EQ(integerOf(UINT64_MAX), none);
    EXPECT_EQ(integerOf(std::uint64_t{INT64_MAX}), INT64_MAX);
    EXPECT_EQ(integerOf(std::int8_t{-1}), -1);
    EXPECT_EQ(integerOf(-0x1p63), INT64_MIN);
    EXPECT_EQ(integerOf(-2.9), -2);
    for (auto const number : {0x1p63, -0x1.0000000000001p63, std::nan(""), HUGE_VAL, -HUGE_VAL})
        EXPECT_EQ(integerOf(number), none) << number;
    EXPECT_EQ(floatOf(1e300), std::nullopt);
    EXPECT_EQ(floatOf(HUGE_VAL), std::numeric_limits<float>::infinity());
    // clang-format off
    std::vector<std::tuple<Value, std::optional<std::int64_t>, std::optional<double>>> const read = {
        {" \t+12\n", 12, 12.0}, {"-1.5e3", -1500, -1500.0}, {"9223372036854775807", INT64_MAX, 0x1p63},
        {"9223372036854775807.0", INT64_MAX, 0x1p63}, {"9223372036854775808", none, 0x1p63}, {"-inf", none, -HUGE_VAL},
        {true, 1, 1.0}, {2.5, 2, 2.5}, {INT64_MIN, INT64_MIN, -0x1p63},
        {*Decimal::fromText("9223372036854775807.9"), INT64_MAX, 0x1p63}, {*Decimal::fromText("1e30"), none, 1e30}};
    // clang-format on
    for (auto const& [value, whole, number] : read) {
        EXPECT_EQ(integerOf(value), whole) << value;
        EXPECT_EQ(doubleOf(value), number) << value;
        EXPECT_EQ(floatOf(value), static_cast<float>(*number)) << value;
    }
    EXPECT_EQ(integerOf(std::string{"12"}), doubleOf(Text{"12"}));
    for (auto const& value : {Value("1e400"), Value(""), Value(" "), Value("+"), Value("+-1"), Value("12 m"), Value("0x10"),
                              Value("1,5"), Value(), Value(List{1}), Value::date(5)})
        EXPECT_FALSE(integerOf(value) || doubleOf(value) || floatOf(value)) << value;
}

} // namespace
} // namespace Tessarin
