#pragma once
#include "Notes.h"
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTimer>

namespace notes {

/// One note, with its title, tags and text. What is typed is in the note, and saved, after half a second or when the note is left;
/// what is changed elsewhere (an undo, another window, another process) is shown at once.
class NoteEditor : public QWidget {
public:
    explicit NoteEditor(QWidget* parent = nullptr);

    /// Null: nothing can be typed.
    void show(Tessarin::Ref<Note> note);
    Tessarin::Ref<Note> const& note() const noexcept { return note_; }
    /// What was typed goes into the note now.
    void commit();
    void showAge();
    void focusTitle();

private:
    void read(std::string_view key);
    bool write();
    bool setIfTyped(Tessarin::Attribute<std::string> const& attribute, QString const& typed, char const* actionName);

    Tessarin::Ref<Note> note_;
    Tessarin::ScopedConnection connection_;
    QLineEdit title_, tags_;
    QPlainTextEdit text_;
    QLabel age_;
    QTimer pause_;
    bool isReading_ = false;
};

} // namespace notes
