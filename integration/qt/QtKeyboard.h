#pragma once
#include "Tessarin/system/KeyboardModifiers.h"
#include <QGuiApplication>
#include <QScreen>

namespace Tessarin {

/// Qt's set of modifier keys. Qt does not tell whether capitals are locked: `capsLock` is in none.
inline KeyboardModifiers fromQt(Qt::KeyboardModifiers keys) {
    KeyboardModifiers set;
    if (keys & Qt::ShiftModifier) set |= KeyboardModifiers::shift;
    if (keys & Qt::ControlModifier) set |= KeyboardModifiers::control;
    if (keys & Qt::AltModifier) set |= KeyboardModifiers::option;
    if (keys & Qt::MetaModifier) set |= KeyboardModifiers::command;
    return set;
}
inline Qt::KeyboardModifiers toQt(KeyboardModifiers keys) {
    Qt::KeyboardModifiers set;
    if (keys.contains(KeyboardModifiers::shift)) set |= Qt::ShiftModifier;
    if (keys.contains(KeyboardModifiers::control)) set |= Qt::ControlModifier;
    if (keys.contains(KeyboardModifiers::option)) set |= Qt::AltModifier;
    if (keys.contains(KeyboardModifiers::command)) set |= Qt::MetaModifier;
    return set;
}

/// Has `KeyboardModifiers::current` ask Qt, from construction to destruction; then whoever was asked before. Absent while there
/// is no application object or it has no screen. On the main thread. Needs Qt's Gui module.
///
///     QApplication application(argc, argv);
///     Tessarin::QtKeyboard const keyboard;
class QtKeyboard {
public:
    QtKeyboard() : before_(KeyboardModifiers::setSource(ask)) {}
    ~QtKeyboard() { KeyboardModifiers::setSource(before_); }
    QtKeyboard(QtKeyboard const&) = delete;
    QtKeyboard& operator=(QtKeyboard const&) = delete;

private:
    static std::optional<KeyboardModifiers> ask() {
        if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance()) || !QGuiApplication::primaryScreen()) return {};
        return fromQt(QGuiApplication::queryKeyboardModifiers());
    }

    KeyboardModifiers::Source const before_;
};

} // namespace Tessarin
