#pragma once
#include "Tessarin/system/KeyboardModifiers.h"
#include <gdk/gdk.h>

namespace Tessarin {

/// GDK's set of modifier keys. X11 tells of the logo key as the fourth modifier, which GTK 4 has no name for.
inline KeyboardModifiers fromGdk(GdkModifierType keys) {
    KeyboardModifiers set;
    if (keys & GDK_SHIFT_MASK) set |= KeyboardModifiers::shift;
    if (keys & GDK_CONTROL_MASK) set |= KeyboardModifiers::control;
    if (keys & GDK_ALT_MASK) set |= KeyboardModifiers::option;
    if (keys & (GDK_SUPER_MASK | 1 << 6)) set |= KeyboardModifiers::command;
    if (keys & GDK_LOCK_MASK) set |= KeyboardModifiers::capsLock;
    return set;
}

/// Has `KeyboardModifiers::current` ask GTK 4's display, from construction to destruction; then whoever was asked before. Absent
/// while there is no display or it has no keyboard. On the main thread.
///
///     gtk_init();
///     Tessarin::GtkKeyboard const keyboard;
class GtkKeyboard {
public:
    GtkKeyboard() : before_(KeyboardModifiers::setSource(ask)) {}
    ~GtkKeyboard() { KeyboardModifiers::setSource(before_); }
    GtkKeyboard(GtkKeyboard const&) = delete;
    GtkKeyboard& operator=(GtkKeyboard const&) = delete;

private:
    static std::optional<KeyboardModifiers> ask() {
        auto* const display = gdk_display_get_default();
        auto* const seat = display ? gdk_display_get_default_seat(display) : nullptr;
        auto* const keyboard = seat ? gdk_seat_get_keyboard(seat) : nullptr;
        if (!keyboard) return {};
        auto keys = gdk_device_get_modifier_state(keyboard);
        if (gdk_device_get_caps_lock_state(keyboard)) keys = static_cast<GdkModifierType>(keys | GDK_LOCK_MASK);
        return fromGdk(keys);
    }

    KeyboardModifiers::Source const before_;
};

} // namespace Tessarin
