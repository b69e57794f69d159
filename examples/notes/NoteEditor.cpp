#include "NoteEditor.h"

#include <QVBoxLayout>
#include <Tessarin/integration/qt/QtText.h>

using namespace Tessarin;

namespace notes {
namespace {

constexpr char const* keys[] = {"title", "tags", "text", "edited"};

QString shown(std::string const& text) { return QString::fromStdString(text); }

void setText(QLineEdit& field, QString const& text) {
    if (field.text() != text) field.setText(text);
}

} // namespace

NoteEditor::NoteEditor(QWidget* parent) : QWidget(parent) {
    auto* const layout = new QVBoxLayout(this);
    for (QWidget* const each : std::initializer_list<QWidget*>{&title_, &tags_, &text_, &age_}) layout->addWidget(each);
    title_.setObjectName("title");
    title_.setPlaceholderText("Title");
    tags_.setObjectName("tags");
    tags_.setPlaceholderText("Tags, with commas");
    text_.setObjectName("text");
    text_.setUndoRedoEnabled(false); // the window's undo knows more
    age_.setObjectName("age");
    pause_.setSingleShot(true);
    pause_.setInterval(500);
    auto const typed = [this] {
        if (!isReading_) pause_.start();
    };
    connect(&title_, &QLineEdit::textEdited, this, typed);
    connect(&tags_, &QLineEdit::textEdited, this, typed);
    connect(&text_, &QPlainTextEdit::textChanged, this, typed);
    connect(&pause_, &QTimer::timeout, this, [this] { commit(); });
    show(nullptr);
}

void NoteEditor::show(Ref<Note> note) {
    if (note == note_ && note) return;
    commit();
    note_ = std::move(note);
    setEnabled(note_ != nullptr);
    auto const told = [this](std::span<ValueChange const> changes) {
        for (auto const& change : changes) read(change.key);
    };
    connection_ = note_ ? note_->observe({std::begin(keys), std::end(keys)}, told) : ScopedConnection();
    for (auto const* key : keys) read(key);
}

/// Only what has changed is set, so that the cursor stays, and what is being typed beside it.
void NoteEditor::read(std::string_view key) {
    isReading_ = true;
    bool const isThere = note_ && !note_->isDeleted();
    if (key == "title") setText(title_, isThere ? shown(note_->get(Note::title)) : QString());
    if (key == "tags") setText(tags_, isThere ? shown(tagsText(*note_)) : QString());
    if (auto const now = isThere ? shown(note_->get(Note::text)) : QString(); key == "text" && now != text_.toPlainText())
        text_.setPlainText(now);
    if (key == "edited") showAge();
    isReading_ = false;
}

void NoteEditor::showAge() { age_.setText(note_ && !note_->isDeleted() ? "Edited " + shown(age(*note_)) : QString()); }

bool NoteEditor::setIfTyped(Attribute<std::string> const& attribute, QString const& typed, char const* actionName) {
    if (shown(note_->get(attribute)) == typed) return false;
    note_->set(attribute, typed.toStdString());
    note_->managedObjectContext()->undoManager()->setActionName(actionName);
    return true;
}

bool NoteEditor::write() {
    bool isTyped = setIfTyped(Note::title, title_.text(), "Title");
    isTyped = setIfTyped(Note::text, text_.toPlainText(), "Typing") || isTyped;
    if (shown(tagsText(*note_)) == tags_.text()) return isTyped;
    setTags(*note_, tags_.text().toStdString());
    note_->managedObjectContext()->undoManager()->setActionName("Tags");
    return true;
}

void NoteEditor::commit() {
    pause_.stop();
    if (!note_ || note_->isDeleted() || !note_->managedObjectContext() || !write()) return;
    note_->set(Note::edited, NSDate::now());
    Ref<NSError> error;
    if (!note_->managedObjectContext()->save(error)) age_.setText("Not saved: " + shown(error->localizedDescription()));
}

void NoteEditor::focusTitle() {
    title_.setFocus();
    title_.selectAll();
}

} // namespace notes
