// Qt's texts where the library takes texts.
#include "integration/qt/QtText.h"
#include "tests/platform/objectgraph/context/TypedLibrary.h"

namespace Tessarin::tests::typed {
namespace {

Attribute<QString> const qtTitle{"title"};
Attribute<std::optional<QString>> const qtSubtitle{"subtitle"};

TEST(QtTexts, AreTextsInSettersConditionsAndSubscripts) {
    auto const context = contextOver(coordinatorOver(typedModel()));
    auto const book = context->insertObject<Book>();
    QString const text = QString::fromUtf8("Käse \xF0\x9F\xA7\x80");
    book->set(Book::title, text);
    EXPECT_EQ(book->get(Book::title), text.toStdString());
    EXPECT_EQ(book->get(qtTitle), text);
    EXPECT_FALSE(book->get(qtSubtitle));
    book->set(qtSubtitle, "x"), (*book)["title"] = QString("Emma");
    EXPECT_EQ(book->get(qtSubtitle), QString("x"));
    QString const title = (*book)["title"];
    EXPECT_EQ(title, "Emma");
    auto const condition = (Book::title.contains(QString("mm"), caseInsensitive) && QString("Emma") == qtTitle).predicate();
    EXPECT_TRUE(condition->isEqual(*where("title CONTAINS[c] 'mm' AND title == 'Emma'"))) << *condition;
    EXPECT_EQ(Value(QString(QChar(0xD800))), Value("?")) << "a lone surrogate";
}

} // namespace
} // namespace Tessarin::tests::typed
