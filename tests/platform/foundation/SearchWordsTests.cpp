#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/foundation/predicates/TextExcerpt.h"
#include "Tessarin/platform/foundation/values/NSError.h"

#include <gtest/gtest.h>

using namespace Tessarin;

namespace {

std::string wordsOf(std::string_view text) {
    std::string words;
    forEachSearchWord(text, [&](SearchWord const& word) {
        words += (words.empty() ? "" : "|") + std::string(word.folded);
        return true;
    });
    return words;
}

TEST(SearchWords, AreTakenFromTextsOfAnyScript) {
    struct {
        std::string text, words;
    } const table[] = {
        {"", ""},
        {" \t*\"(-) \xF0\x9F\x98\x80", ""}, // a picture is no word
        {"Jane's foo_bar FOO.bar 3.14", "jane|s|foo|bar|foo|bar|3|14"},
        {"Wörd WO\xCC\x88RD word", "word|word|word"},
        {"Straße STRASSE", "strasse|strasse"},
        {"naïve—café", "naive|cafe"},
        {"ПРИВЕТ, привет", "привет|привет"},
        {"東京都庁に行く", "東京|都庁|に|行く"},
        {"ภาษาไทย", "ภาษา|ไทย"},
        {std::string("a\0b", 3), "a|b"},
        {"\xFF\xC0 a\xC3", "a"}, // what is no UTF-8 ends a word
        {std::string(300, 'x') + " y", std::string(255, 'x') + "|y"},
    };
    for (auto const& [text, words] : table) EXPECT_EQ(wordsOf(text), words) << text;
}

TEST(SearchWords, TheShortWayFoldsAsTheLongOneDoes) {
    std::string const longer(80, 'x'); // goes by Unicode's rules whatever is in it
    for (unsigned letter = 0x80; letter < 0x600; ++letter) {
        std::string const text{'a', static_cast<char>(0xC0 | letter >> 6), static_cast<char>(0x80 | (letter & 0x3F)), 'B'};
        EXPECT_EQ(longer + wordsOf(text), wordsOf(longer + text)) << letter;
    }
}

TEST(SearchWords, AQueryFindsAllOfItsWordsAndTheLastAsABeginning) {
    struct {
        char const *query, *text;
        bool isFound;
    } const table[] = {{"jane pri", "Pride and Prejudice, by JÁNE Austen", true},
                       {"pri jane", "Pride, by Jane", false}, // only the last one may be a part
                       {"jane jane", "jane", true},
                       {"wo wo", "wo", true},
                       {"wo wo", "word", false},
                       {"", "anything", true},
                       {"...", "", true},
                       {"a", "", false},
                       {"東京 都", "東京都庁", true},
                       {"\" OR *", "or", true}};
    for (auto const& [query, text, isFound] : table) {
        auto const predicate = NSPredicate::predicateWithFormat("SELF FINDS %@", query);
        EXPECT_EQ(predicate->evaluateWithObject(Value(text)), isFound) << query << " in " << text;
    }
    Dictionary const note{{"title", "Pride"}, {"text", "by Jane"}};
    EXPECT_TRUE(NSPredicate::predicateWithFormat("{title, text} FINDS 'jane pri'")->evaluateWithObject(Value(note)));
    EXPECT_FALSE(NSPredicate::predicateWithFormat("ANY {title, text} FINDS 'jane pri'")->evaluateWithObject(Value(note)));
    EXPECT_FALSE(NSPredicate::predicateWithFormat("nothing FINDS ''")->evaluateWithObject(Value(note))); // there is no text
    auto const read = NSPredicate::predicateWithFormat("{title, text} FINDS 'jane'");
    EXPECT_EQ(read->predicateFormat(), "{title, text} FINDS \"jane\"");
    EXPECT_TRUE(NSPredicate::parse(read->predicateFormat())->isEqual(*read));
}

TEST(TextExcerpt, ShowsThePartWithMostOfTheWords) {
    auto const shown = [](std::string_view text, char const* query, std::size_t words) {
        auto const excerpt = TextExcerpt::of(text, SearchQuery(query), words);
        auto marked = excerpt.text;
        for (auto hit = excerpt.hits.rbegin(); hit != excerpt.hits.rend(); ++hit)
            marked.insert(hit->end, "]").insert(hit->begin, "[");
        return (excerpt.isCutBefore ? "…" : "") + marked + (excerpt.isCutBehind ? "…" : "");
    };
    EXPECT_EQ(shown("a b c Käse d e f g. kase, bröt h i", "kase brot", 4), "…g. [kase], [bröt] h…");
    EXPECT_EQ(shown("käse käse, x", "kas", 9), "[käse] [käse], x");
    EXPECT_EQ(shown("a b c d", "z", 2), "a b…");
    EXPECT_EQ(shown("a b c d z", "z", 2), "…d [z]");
    EXPECT_EQ(shown("z a b c d", "z", 0), "[z]…");
    EXPECT_EQ(shown("", "z", 2), "");
}

} // namespace
