// HTML of texts with attributes, read back by a document of Qt.
#include "Tessarin/text/AttributedText.h"

#include <QGuiApplication>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextFragment>
#include <gtest/gtest.h>
#include <random>

namespace Tessarin {
namespace {

std::string plainTextOf(NSAttributedString const& text) {
    QTextDocument document;
    document.setHtml(QString::fromStdString(text.html()));
    return document.toPlainText().toStdString();
}

QTextCharFormat formatOf(QTextDocument const& document, std::string const& piece) {
    for (auto block = document.begin(); block.isValid(); block = block.next())
        for (auto at = block.begin(); !at.atEnd(); ++at)
            if (at.fragment().text().toStdString() == piece) return at.fragment().charFormat();
    ADD_FAILURE() << piece << " is no piece of " << document.toPlainText().toStdString();
    return {};
}

TEST(HTML, EveryAttributeIsReadBack) {
    auto const text = AttributedText()
                          .plain("<b>&amp;")
                          .with({.fontFamily = "It's <b> \"M\" & C\\o", .fontSize = 10.5, .isItalic = true}, "font")
                          .bold("bold")
                          .plain(" ")
                          .underlined("under")
                          .struckThrough(AttributedText().underlined("both"))
                          .struckThrough("struck")
                          .colour({1, 0.5, 0, 1}, "colour")
                          .background({0, 0, 1, 0.4}, "ground")
                          .link(*NSURL::URLWithString("https://a/?b=\'&lt=d"), "link")
                          .text();
    QTextDocument document;
    document.setHtml(QString::fromStdString(text.html()));
    EXPECT_EQ(document.toPlainText().toStdString(), text.string());
    auto const font = formatOf(document, "font");
    EXPECT_EQ(font.fontFamilies().toStringList().join("|").toStdString(), "It's <b> \"M\" & C\\o");
    EXPECT_EQ(font.fontPointSize(), 10.5);
    EXPECT_TRUE(font.fontItalic() && !font.fontUnderline() && font.fontWeight() != QFont::Bold);
    EXPECT_EQ(formatOf(document, "bold").fontWeight(), QFont::Bold);
    auto const under = formatOf(document, "under"), both = formatOf(document, "both"), struck = formatOf(document, "struck");
    EXPECT_TRUE(under.fontUnderline() && !under.fontStrikeOut() && both.fontUnderline() && both.fontStrikeOut());
    EXPECT_TRUE(struck.fontStrikeOut() && !struck.fontUnderline());
    EXPECT_EQ(formatOf(document, "colour").foreground().color(), QColor(255, 128, 0));
    EXPECT_EQ(formatOf(document, "ground").background().color(), QColor(0, 0, 255, 102));
    EXPECT_EQ(formatOf(document, "link").anchorHref().toStdString(), "https://a/?b='&lt=d");
}

TEST(HTML, LinesAreParagraphsWithTheirAlignment) {
    auto const text = AttributedText()
                          .aligned(TextAlignment::Center, "one\n")
                          .aligned(TextAlignment::Right, "two  spaces\r\n\n")
                          .aligned(TextAlignment::Justified, "three")
                          .plain(" four\n")
                          .text();
    QTextDocument document;
    document.setHtml(QString::fromStdString(text.html()));
    ASSERT_EQ(document.toPlainText().toStdString(), "one\ntwo  spaces\n\nthree four\n");
    auto const alignment = [&](int block) {
        return document.findBlockByNumber(block).blockFormat().alignment() & ~Qt::AlignAbsolute;
    };
    EXPECT_EQ(alignment(0), Qt::AlignHCenter);
    EXPECT_EQ(alignment(1), Qt::AlignRight);
    EXPECT_EQ(alignment(3), Qt::AlignJustify);
    EXPECT_EQ(plainTextOf(NSAttributedString("")), "");
    EXPECT_EQ(plainTextOf(NSAttributedString("\n\n")), "\n\n");
}

TEST(HTML, AnyBytesComeThroughOrAreReplaced) {
    EXPECT_EQ(plainTextOf(NSAttributedString(std::string("a\0b\x01\xFF\u0085\uFFFE", 10))), "a\uFFFDb\uFFFD\uFFFD\uFFFD\uFFFD");
    std::mt19937 random(9);
    for (int round = 0; round < 300; ++round) {
        AttributedText text;
        for (auto size = random() % 12; size > 0; --size)
            text.with({.isBold = random() % 2 == 0}, std::vector<std::string>{" ", "\n", "é", "<", "&lt;", "\"", "'", "  ", "\t",
                                                                              "--", "]]>", "a"}[random() % 12]);
        ASSERT_EQ(plainTextOf(text), text.text().string()) << text.text().html();
    }
}

} // namespace
} // namespace Tessarin

int main(int argc, char** argv) {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QGuiApplication const application(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
