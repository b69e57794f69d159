#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/foundation/predicates/TextFolding.h"

#include <gtest/gtest.h>

using namespace Tessarin;

namespace {

std::string sorted(List objects, std::vector<Ref<NSSortDescriptor>> const& descriptors, std::string_view shown) {
    std::string text;
    for (auto const& object : sortedArrayUsingDescriptors(std::move(objects), descriptors))
        text += valueForKeyPath(object, shown).description() + " ";
    return text;
}

auto by(std::string_view key, SortOptions options = {}) { return NSSortDescriptor::sortDescriptorWithKey(key, options); }

} // namespace

TEST(NSSortDescriptor, SortsByOneKeyThenTheNext) {
    List const people{Dictionary{{"name", "b"}, {"home", Dictionary{{"zip", 2}}}}, Dictionary{{"name", "a"}, {"home", nullptr}},
                      Dictionary{{"name", "d"}, {"home", Dictionary{{"zip", 1.5}}}},
                      Dictionary{{"name", "c"}, {"home", Dictionary{{"zip", 2}}}}};
    EXPECT_EQ(sorted(people, {by("home.zip")}, "name"), "a d b c ");
    EXPECT_EQ(sorted(people, {by("home.zip"), by("name", {.ascending = false})}, "name"), "a d c b ");
    EXPECT_EQ(sorted(people, {by("home.zip")->reversedSortDescriptor()}, "name"), "b c d a ");
    EXPECT_EQ(sorted({"x", 3, nullptr, 1, "a", 2}, {by("")}, ""), "nil 1 2 3 a x ");
}

TEST(NSSortDescriptor, OrdersTextsInFiveWays) {
    struct {
        TextComparison comparison;
        char const* expected;
    // clang-format off
    } const rows[] = {
        {TextComparison::Bytes, "B10 B9 a b9 f é "}, {TextComparison::CaseInsensitive, "a B10 b9 B9 f é "},
        {TextComparison::Localized, "a B10 b9 B9 é f "}, {TextComparison::LocalizedCaseInsensitive, "a B10 b9 B9 é f "},
        {TextComparison::LocalizedStandard, "a b9 B9 B10 é f "}};
    // clang-format on
    for (auto const& [comparison, expected] : rows)
        EXPECT_EQ(sorted({"f", "b9", "B9", "a", "é", "B10"}, {by("", {.comparison = comparison})}, ""), expected);
    EXPECT_TRUE(compareTexts("b", "B", TextComparison::CaseInsensitive) == 0);
    EXPECT_TRUE(compareTexts("b", "B", TextComparison::LocalizedCaseInsensitive) == 0);
    EXPECT_TRUE(compareTexts("b", "B", TextComparison::Localized) < 0);
}

TEST(TextFolding, OverlooksCaseAndMarksBeyondASCII) {
    auto constexpr c = TextOptions::CaseInsensitive, d = TextOptions::DiacriticInsensitive;
    std::tuple<std::string, TextOptions, std::string> const rows[] = {
        {"Ab1", c, "ab1"}, {"Ab1", d, "Ab1"}, {"ÀÉ", c, "àé"}, {"ÀÉ", d, "AE"}, {"Straße", c, "strasse"},
        {"Σίσυφος", c | d, "σισυφοσ"}, {"e\xCC\x81", TextOptions::Normalized, "é"}, {"ガ", d, "ガ"},
        {"שָׁלוֹם", d, "שלום"}, {std::string(200, 'A') + "É", c | d, std::string(200, 'a') + "e"},
        {std::string(200, 'A'), c, std::string(200, 'a')}}; // the voicing of ガ makes another letter
    for (auto const& [text, options, folded] : rows) {
        EXPECT_EQ(foldedText(text, options), folded);
        EXPECT_EQ((FoldedText{text, options}.view()), folded);
    }
    EXPECT_EQ(codePointCount("aé🙂"), 3U);
    for (std::size_t at = 0; at < 20; ++at) EXPECT_FALSE(isASCII(std::string(at, 'a') + "é" + std::string(19 - at, 'b')));
}
