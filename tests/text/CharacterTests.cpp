// Characters of texts, by walking and by index, and sets of them.
#include "Tessarin/platform/foundation/text/NSCharacterSet.h"
#include "Tessarin/text/TextIndex.h"

#include <gtest/gtest.h>

namespace Tessarin {
namespace {

using Set = NSCharacterSet;

TEST(Text, CharactersAreGraphemeClusters) {
    using namespace std::string_literals;
    for (auto const& bounds :
         {"e\u0301|a|b|"s, // an accent after the last ASCII letter of a run; the last bar ends nothing
          "a|\r\n|b|\r|\r\n|\n|\r|\u0301"s, "👩‍🚀🏽|👨‍👩‍👧|x"s, "🇩🇪|🇫🇷|🇮"s, "क्षि|각|ᄀ"s,
          "\u06001|2"s, // a sign that takes the number behind it
          "a|\xE2|\x82|z|\x80|\u0301|\xFF"s, "\xED|\xA0|\x80|\xF0|\x9F"s, "\0|\u00AD|\u0301"s,
          "1|2|3|4|5|6|7|8\u0301|1|2|3|4|5|6|7|8|\r\n|1|2|3|4|5|6|7|8|9"s}) {
        auto characters = Text::split(bounds, Set::characterSetWithCharactersInString("|"));
        if (characters.back().empty()) characters.pop_back();
        std::string text;
        for (auto const& character : characters) text += character;
        TextIndex const index{text};
        auto const count = static_cast<std::ptrdiff_t>(characters.size());
        ASSERT_EQ(Text::length(text), characters.size()) << text;
        ASSERT_EQ(index.length(), characters.size()) << text;
        for (std::ptrdiff_t at = 0; at < count; ++at) {
            auto const& expected = characters[static_cast<std::size_t>(at)];
            EXPECT_EQ(Text::at(text, at), expected) << text;
            EXPECT_EQ(Text::at(text, at - count), expected) << text;
            EXPECT_EQ(index.at(at), expected) << text;
            EXPECT_EQ(index.at(at - count), expected) << text;
        }
        for (auto const outside : {count, -count - 1, PTRDIFF_MAX, PTRDIFF_MIN})
            EXPECT_FALSE(Text::at(text, outside) || index.at(outside)) << text << outside;
    }
}

TEST(Text, RangesCountFromTheEndAndStopAtTheEnds) {
    std::string const text = "aé\r\n👩‍🚀z";
    TextIndex const index{text}, plain{Text{"abcde"}};
    std::vector<std::string> const characters{"a", "é", "\r\n", "👩‍🚀", "z"};
    using Index = std::ptrdiff_t;
    for (auto const from : {PTRDIFF_MIN, Index{-6}, Index{-2}, Index{0}, Index{1}, Index{9}})
        for (auto const to : {PTRDIFF_MIN, Index{-4}, Index{0}, Index{2}, Index{5}, PTRDIFF_MAX}) {
            std::string part;
            for (std::ptrdiff_t at = 0; at < 5; ++at)
                if (at >= (from < 0 ? from + 5 : from) && at < (to < 0 ? to + 5 : to))
                    part += characters[static_cast<std::size_t>(at)];
            EXPECT_EQ(Text::sub(text, from, to), part) << from << " " << to;
            EXPECT_EQ(index.sub(from, to), part) << from << " " << to;
            EXPECT_EQ(plain.sub(from, to), Text::sub("abcde", from, to)) << from << " " << to;
        }
    EXPECT_EQ(Text::sub(text, -3, -1), "\r\n👩‍🚀");
    TextIndex left = index, moved = std::move(left);
    EXPECT_TRUE(moved.text() == index.text() && moved.at(0) == index.at(0));
    EXPECT_TRUE(left.length() == 0 && left.text().empty() && !left.at(0) && !left.at(-1) && left.sub(0).empty() &&
                !left.indexOf(0));
    left = plain;
    EXPECT_EQ(left.at(-1), "e");
}

TEST(NSCharacterSet, HoldsWhatItsNameSays) {
    struct {
        char const* name;
        Set set;
        std::u32string members, others;
    } const rows[] = {
        {"letters", Set::letterCharacterSet(), U"aÉßд中\u0301", U"1 .\n€"},
        {"digits", Set::decimalDigitCharacterSet(), U"09٣", U"a½Ⅷ"},
        {"whitespace", Set::whitespaceCharacterSet(), U" \t\u00A0\u3000", U"\n\r\u2028a"},
        {"both", Set::whitespaceAndNewlineCharacterSet(), U" \t\n\u3000\u2029", U"a\u200B"},
        {"punctuation", Set::punctuationCharacterSet(), U".-_(»", U"$+a"},
        {"symbols", Set::symbolCharacterSet(), U"$+€^☃", U".-a"},
        {"control", Set::controlCharacterSet(), U"\u0001\u007F\u00AD\u200D", U" a"},
        {"illegal", Set::illegalCharacterSet(), U"\uFFFE\U0010FFFF\u0378", U"a\n\uFFFD"},
        {"of a text", Set::characterSetWithCharactersInString("xé\xFF"), U"xé", U"eX\uFFFD"},
        {"inverse", Set::characterSetWithCharactersInString("xé").invertedSet(), U"eX☃", U"xé"},
    };
    for (auto const& row : rows) {
        for (auto const member : row.members)
            EXPECT_TRUE(row.set.characterIsMember(member)) << row.name << " " << std::hex << +member;
        for (auto const other : row.others)
            EXPECT_FALSE(row.set.characterIsMember(other)) << row.name << " " << std::hex << +other;
        EXPECT_FALSE(row.set.characterIsMember(0x110000)) << row.name;
        EXPECT_EQ(row.set.invertedSet().invertedSet(), row.set);
        EXPECT_FALSE(row.set.invertedSet() == row.set);
    }
}

TEST(Text, PiecesAndEndsByCharactersOfASet) {
    auto const blanks = Set::whitespaceAndNewlineCharacterSet(), commas = Set::characterSetWithCharactersInString(",é");
    EXPECT_EQ(Text::trimming(" \u3000\r\n Emma Woodhouse\u2029\t"), "Emma Woodhouse");
    EXPECT_EQ(Text::trimming(" \n "), "");
    EXPECT_EQ(Text::trimming("éé,\xC3,xé", commas), "\xC3,x"); // half of a character is none of the set
    EXPECT_EQ(Text::trimming("\xC3", Set::illegalCharacterSet()), "");
    EXPECT_EQ(Text::removingCharacters("a\xFF\uFFFE"
                                       "b",
                                       Set::illegalCharacterSet()),
              "ab");
    EXPECT_EQ(Text::removingCharacters("+49 (30) 12\xFF", Set::decimalDigitCharacterSet().invertedSet()), "493012");
    using Pieces = std::vector<std::string>;
    EXPECT_EQ(Text::split("a,béc,", commas), (Pieces{"a", "b", "c", ""}));
    EXPECT_EQ(Text::split("", commas), Pieces{""});
    EXPECT_EQ(Text::split("a\r\nb\n\rc\r\n", blanks), (Pieces{"a", "b", "", "c", ""}));
    EXPECT_EQ(Text::split("a\r\nb", Set::characterSetWithCharactersInString("\r")), (Pieces{"a", "\nb"}));
}

} // namespace
} // namespace Tessarin
