#include "integration/qt/QtKeyboard.h"
#include "integration/qt/QtSnapshot.h"

#include <QApplication>
#include <QTest>
#include <QWindow>
#include <gtest/gtest.h>

namespace Tessarin {
namespace {

using Keys = KeyboardModifiers;

TEST(Snapshot, ShowsAWidgetThatWasNeverShownWithWhatItHolds) {
    QWidget window, child(&window);
    window.setStyleSheet("background: #ff0000");
    window.resize(40, 30);
    child.setStyleSheet("background: #0000ff");
    child.setGeometry(10, 5, 20, 10);
    for (int const scale : {1, 2}) {
        auto const shown = snapshot(window, scale);
        ASSERT_EQ(shown.size(), window.size() * scale);
        EXPECT_EQ(shown.pixel(10 * scale - 1, 5 * scale), 0xffff0000);
        for (auto const& inside : {QPoint(10, 5) * scale, QPoint(30, 15) * scale - QPoint(1, 1)})
            EXPECT_EQ(shown.pixel(inside), 0xff0000ff);
    }
    window.resize(0, 0);
    EXPECT_TRUE(snapshot(window).isNull());
}

TEST(KeyboardModifiers, AreTheKeysThatQtKnowsToBeDown) {
    EXPECT_EQ(Keys::current(), std::nullopt) << "nobody is asked";
    {
        QtKeyboard const keyboard;
        QWindow window;
        window.show();
        std::pair<Qt::KeyboardModifiers, Keys> const rows[] = {
            {Qt::ShiftModifier, Keys::shift},
            {Qt::ControlModifier, Keys::control},
            {Qt::AltModifier, Keys::option},
            {Qt::ShiftModifier | Qt::MetaModifier | Qt::KeypadModifier, Keys::shift | Keys::command}};
        for (auto const& [down, expected] : rows) {
            QTest::keyPress(&window, Qt::Key_A, down);
            EXPECT_EQ(Keys::current(), expected);
            EXPECT_EQ(fromQt(toQt(expected)), expected);
            QTest::keyRelease(&window, Qt::Key_A, Qt::NoModifier);
            EXPECT_EQ(Keys::current(), Keys::none);
        }
        auto const qt = Keys::setSource([]() -> std::optional<Keys> { return Keys::capsLock; });
        EXPECT_EQ(Keys::current(), Keys::capsLock);
        Keys::setSource(qt);
        EXPECT_EQ(Keys::current(), Keys::none) << "Qt again";
    }
    EXPECT_EQ(Keys::current(), std::nullopt);
    auto const keys = Keys::shift | Keys::capsLock;
    EXPECT_TRUE(keys.contains(Keys::shift) && keys.contains(Keys::none) && !keys.contains(Keys::shift | Keys::option));
    EXPECT_EQ(((keys - Keys::shift) | Keys::command).description() + (keys & Keys::option).description(),
              "[command, capsLock][]");
}

} // namespace
} // namespace Tessarin

#ifdef __SANITIZE_THREAD__
/// Qt paints with threads of its own. It is not built for the sanitizer, which cannot see how they hand over what they wrote.
extern "C" __attribute__((visibility("default"))) char const* __tsan_default_suppressions() {
    return "race:libQt6Core.so\nrace:libQt6Gui.so\n";
}
#endif

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (Tessarin::QtKeyboard const keyboard; Tessarin::KeyboardModifiers::current()) return 2; // no application object yet
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication const application(argc, argv);
    return RUN_ALL_TESTS();
}
