// Markup of texts with attributes, read back by Pango itself.
#include "Tessarin/text/AttributedText.h"

#include <gtest/gtest.h>
#include <pango/pango.h>
#include <random>

namespace Tessarin {
namespace {

std::string taken(char* text) {
    std::string const copy = text;
    g_free(text);
    return copy;
}

/// What Pango shows of the markup, "|", and the attributes with their ranges in bytes, as it writes them itself.
std::string readBack(NSAttributedString const& text) {
    auto const markup = text.pangoMarkup();
    PangoAttrList* list = nullptr;
    char* shown = nullptr;
    if (!pango_parse_markup(markup.data(), static_cast<int>(markup.size()), 0, &list, &shown, nullptr, nullptr))
        return "refused: " + markup;
    auto const all = taken(shown) + "|" + taken(pango_attr_list_to_string(list));
    pango_attr_list_unref(list);
    return all;
}

TEST(PangoMarkup, EveryAttributeIsReadBack) {
    NSColor const red{1, 0, 0, 1}, faint{0, 0, 1, 0.5};
    // clang-format off
    std::pair<TextAttributes, char const*> const rows[] = {
        {{}, ""}, {{.fontFamily = "A'<\"&b"}, "1 4 family \"A'<\\\"&b\""}, {{.fontSize = 10.5}, "1 4 size 10752"},
        {{.fontSize = -1.0}, ""}, {{.isBold = true, .isItalic = true}, "1 4 style italic\n1 4 weight bold"},
        {{.isUnderlined = true, .isStruckThrough = true}, "1 4 underline single\n1 4 strikethrough true"},
        {{.colour = red, .background = red}, "1 4 foreground #ffff00000000\n1 4 background #ffff00000000"},
        {{.colour = faint}, "1 4 foreground #00000000ffff\n1 4 foreground-alpha 32768"},
        {{.background = faint.withAlpha(0)}, "1 4 background #00000000ffff\n1 4 background-alpha 1"},
        {{.link = NSURL::URLWithString("https://a/?b&c"), .alignment = TextAlignment::Right}, ""}
    };
    // clang-format on
    for (auto const& [attributes, expected] : rows)
        EXPECT_EQ(readBack(AttributedText().plain("<").with(attributes, "é&").plain(">")), std::string{"<é&>|"} + expected);
}

TEST(PangoMarkup, AnyBytesComeThroughOrAreReplaced) {
    auto const link = AttributedText().link(*NSURL::URLWithString("https://a/?b&c='d"), "x<").text();
    EXPECT_EQ(link.pangoMarkup(MarkupLinks::AsAnchors), "<a href=\"https://a/?b&amp;c=&#39;d\">x&lt;</a>");
    EXPECT_EQ(readBack(NSAttributedString(std::string("a\0b\xFF\xC3", 5))), "a\uFFFDb\uFFFD\uFFFD|");
    std::mt19937 random(5);
    for (int round = 0; round < 500; ++round) {
        std::string text;
        for (auto size = random() % 30; size > 0; --size) text += static_cast<char>(1 + random() % 127);
        ASSERT_TRUE(readBack(NSAttributedString(text, {.fontFamily = text, .isBold = true})).starts_with(text + "|")) << text;
    }
}

} // namespace
} // namespace Tessarin
