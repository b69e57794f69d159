#include "integration/qt/QtKeyboard.h"
#include "integration/qt/QtSnapshot.h"
#include "tests/integration/drawing/Picture.h"

#include <QApplication>
#include <QTest>
#include <QWindow>
#include <gtest/gtest.h>

namespace Tessarin {
namespace {

using namespace tests;

TEST(Snapshot, ShowsAWidgetThatWasNeverShownWithWhatItHolds) {
    QWidget window;
    window.setStyleSheet("background: #ff0000");
    window.resize(40, 30);
    QWidget child(&window);
    child.setStyleSheet("background: #0000ff");
    child.setGeometry(10, 5, 20, 10);
    for (int const scale : {1, 2}) {
        auto const shown = WithQt::picture(snapshot(window, scale));
        ASSERT_EQ(std::pair(shown.width, shown.height), std::pair(40 * scale, 30 * scale));
        for (int y = 0; y < shown.height; ++y)
            for (int x = 0; x < shown.width; ++x) {
                bool const isChild = NSRect{{10, 5}, {20, 10}}.contains({double(x) / scale, double(y) / scale});
                ASSERT_EQ(shown.at(x, y), pixel(isChild ? NSColor{0, 0, 1} : NSColor{1, 0, 0})) << x << ' ' << y;
            }
    }
    window.resize(0, 0);
    EXPECT_TRUE(snapshot(window).isNull());
}

TEST(KeyboardModifiers, AreTheKeysThatQtKnowsToBeDown) {
    using Keys = KeyboardModifiers;
    EXPECT_EQ(Keys::current(), std::nullopt) << "nobody is asked";
    std::pair<Qt::KeyboardModifiers, Keys> const rows[] = {
        {Qt::NoModifier, Keys::none},
        {Qt::ShiftModifier, Keys::shift},
        {Qt::ControlModifier, Keys::control},
        {Qt::AltModifier, Keys::option},
        {Qt::MetaModifier, Keys::command},
        {Qt::ShiftModifier | Qt::MetaModifier | Qt::KeypadModifier, Keys::shift | Keys::command},
    };
    {
        QtKeyboard const keyboard;
        QWindow window;
        window.show();
        for (auto const& [down, expected] : rows) {
            QTest::keyPress(&window, Qt::Key_A, down);
            EXPECT_EQ(Keys::current(), expected);
            QTest::keyRelease(&window, Qt::Key_A, Qt::NoModifier);
            EXPECT_EQ(Keys::current(), Keys::none);
            EXPECT_EQ(fromQt(toQt(expected)), expected);
        }
        {
            struct Other {
                static std::optional<Keys> ask() { return Keys::capsLock; }
            };
            auto const before = Keys::setSource(Other::ask);
            EXPECT_EQ(Keys::current(), Keys::capsLock);
            EXPECT_EQ(Keys::setSource(before), &Other::ask);
        }
        EXPECT_EQ(Keys::current(), Keys::none) << "Qt again";
    }
    EXPECT_EQ(Keys::current(), std::nullopt);
    auto const keys = Keys::shift | Keys::capsLock;
    EXPECT_TRUE(keys.contains(Keys::shift) && keys.contains(Keys::none) && !keys.contains(Keys::shift | Keys::option));
    EXPECT_EQ((keys - Keys::shift).description(), "[capsLock]");
    EXPECT_EQ((keys & Keys::option).description(), "[]");
    EXPECT_EQ((keys | Keys::command).description(), "[shift, command, capsLock]");
}

} // namespace
} // namespace Tessarin

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    {
        Tessarin::QtKeyboard const keyboard;
        if (Tessarin::KeyboardModifiers::current()) return 2; // no application object yet
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication const application(argc, argv);
    return RUN_ALL_TESTS();
}
