// Texts with attributes; what Pango and Qt make of their markup is tested in integration/.
#include "Tessarin/text/AttributedText.h"

#include <gtest/gtest.h>

namespace Tessarin {
namespace {

NSColor const red{1, 0, 0, 1};

TEST(AttributedText, RunsMeetWhereAttributesChange) {
    auto const url = *NSURL::URLWithString("https://example.org/?a=1&b=2");
    NSAttributedString const text = AttributedText()
                                        .bold("a")
                                        .bold("b")
                                        .plain("")
                                        .italic(AttributedText().colour(red, "é").plain("f"))
                                        .link(url, "z")
                                        .append(NSAttributedString("!", {.isUnderlined = true}));
    EXPECT_EQ(text.string(), "abéfz!");
    using Runs = std::vector<NSAttributedString::Run>;
    EXPECT_EQ(text.runs(), (Runs{{0, 2, {.isBold = true}},
                                 {2, 4, {.isItalic = true, .colour = red}},
                                 {4, 5, {.isItalic = true}},
                                 {5, 6, {.link = url}},
                                 {6, 7, {.isUnderlined = true}}}));
    EXPECT_EQ(text.sub(1, 3).runs(), (Runs{{0, 1, {.isBold = true}}, {1, 3, {.isItalic = true, .colour = red}}}));
    EXPECT_EQ(text.sub(-1), NSAttributedString("!", {.isUnderlined = true}));
    EXPECT_TRUE(text.sub(3, 1).empty() && text.sub(99).runs().empty());
    auto plain = text;
    plain.changeAttributes(0, 99, [](TextAttributes& each) { each = {}; });
    EXPECT_EQ(plain, NSAttributedString("abéfz!"));
    EXPECT_FALSE(plain == text);
    auto half = plain;
    half.changeAttributes(3, 5, [](TextAttributes& each) { each.isBold = true; }); // 3 is within the é
    EXPECT_EQ(half.runs(), (Runs{{0, 2, {}}, {2, 5, {.isBold = true}}, {5, 7, {}}}));
    half.append(half);
    EXPECT_EQ(half.string(), "abéfz!abéfz!");
    EXPECT_EQ(half.attributesAt(9), TextAttributes{.isBold = true});
    EXPECT_EQ(half.attributesAt(14), TextAttributes{});
}

} // namespace
} // namespace Tessarin
