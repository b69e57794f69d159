#include "integration/gtk/GtkKeyboard.h"

#include <gtest/gtest.h>

namespace Tessarin {

using Keys = KeyboardModifiers;

TEST(GtkKeyboard, KnowsEachOfItsKeysAndNoneWithoutADisplay) {
    for (auto const& [state, keys] : {std::pair(0, Keys::none),
                                      {GDK_SHIFT_MASK | GDK_LOCK_MASK, Keys::shift | Keys::capsLock},
                                      {GDK_CONTROL_MASK | GDK_BUTTON1_MASK, Keys::control},
                                      {GDK_ALT_MASK, Keys::option},
                                      {GDK_SUPER_MASK, Keys::command},
                                      {1 << 6, Keys::command}})
        EXPECT_EQ(fromGdk(static_cast<GdkModifierType>(state)), keys) << state;
    GtkKeyboard const keyboard;
    EXPECT_EQ(Keys::current(), std::nullopt) << "GTK was not initialised, and so has opened no display";
}

} // namespace Tessarin
