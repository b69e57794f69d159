#include "integration/gtk/GtkKeyboard.h"

#include <gtest/gtest.h>

namespace Tessarin {
namespace {

using Keys = KeyboardModifiers;

TEST(GtkKeyboard, IsAbsentWithoutADisplay) {
    if (gdk_display_get_default()) GTEST_SKIP() << "there is a display";
    GtkKeyboard const keyboard;
    EXPECT_EQ(Keys::current(), std::nullopt);
}

TEST(GtkKeyboard, KnowsEachOfItsKeys) {
    std::pair<int, Keys> const rows[] = {{0, Keys::none},
                                         {GDK_SHIFT_MASK, Keys::shift},
                                         {GDK_CONTROL_MASK, Keys::control},
                                         {GDK_ALT_MASK, Keys::option},
                                         {GDK_SUPER_MASK, Keys::command},
                                         {1 << 6, Keys::command},
                                         {GDK_LOCK_MASK, Keys::capsLock},
                                         {GDK_SHIFT_MASK | GDK_SUPER_MASK | GDK_BUTTON1_MASK, Keys::shift | Keys::command}};
    for (auto const& [state, expected] : rows) EXPECT_EQ(fromGdk(static_cast<GdkModifierType>(state)), expected) << state;
}

} // namespace
} // namespace Tessarin
