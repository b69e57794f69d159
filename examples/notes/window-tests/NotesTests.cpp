// The notes example in a real window: keys are typed, rows clicked, and what stands there afterwards is compared with what another
// process reads in the file.
#include "examples/notes/NotesWindow.h"
#include "integration/qt/QtMainQueue.h"
#include "tests/support/TemporaryFolder.h"

#include <QApplication>
#include <QProcess>
#include <QScrollBar>
#include <QTest>
#include <gtest/gtest.h>

using namespace Tessarin;
using namespace Tessarin::tests;
using namespace notes;

namespace {

constexpr int patience = 30'000; // ms

class NotesWindowTest : public ::testing::Test {
protected:
    NotesWindowTest() {
        store = make<ManagedObjectStore>(storeOptions(folder.path()));
        window = open();
    }
    ~NotesWindowTest() override {
        if (HasFailure()) window->grab().save(QString::fromStdString(screenshot()));
        for (auto const& each : windows)
            if (each) delete each;
        bool isClosed = false;
        store->close([&](auto const&) { isClosed = true; });
        EXPECT_TRUE(QTest::qWaitFor([&] { return isClosed; }, patience));
    }
    static std::string screenshot() {
        return std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) + ".png";
    }
    NotesWindow* open() {
        auto* const made = new NotesWindow(store, [] {});
        windows.push_back(made);
        made->show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(made, patience));
        QProcess::execute("xdotool", {"windowfocus", QString::number(made->winId())}); // nobody else manages windows here
        EXPECT_TRUE(QTest::qWaitForWindowActive(made, patience));
        return made;
    }

    template <class T> T* part(char const* name) { return window->findChild<T*>(name); }
    void press(QKeySequence const& keys) { QTest::keySequence(window, keys); }
    void choose(char const* action) {
        for (auto* const each : window->findChildren<QAction*>())
            if (each->text().startsWith(action)) return each->trigger();
        FAIL() << "there is no " << action;
    }
    static std::string textOf(QLineEdit* field) { return field->text().toStdString(); }
    std::string text() { return part<QPlainTextEdit>("text")->toPlainText().toStdString(); }
    std::string title() { return textOf(part<QLineEdit>("title")); }
    /// What the list shows, from its first row on.
    std::vector<std::string> rows(int most = 200) {
        std::vector<std::string> titles;
        auto* const model = part<QTreeView>("notes")->model();
        for (int row = 0; row < std::min(most, model->rowCount()); ++row)
            titles.push_back(model->index(row, 0).data().toString().toStdString());
        return titles;
    }
    void click(int row) {
        auto* const view = part<QTreeView>("notes");
        auto const index = view->model()->index(row, 0);
        view->scrollTo(index);
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->visualRect(index).center());
    }
    /// A second process on the same file; the titles that it prints.
    std::vector<std::string> notesctl(QStringList const& arguments) {
        QProcess process;
        process.start(NOTESCTL, QStringList{"--folder", QString::fromStdString(folder.path())} + arguments);
        EXPECT_TRUE(QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, patience));
        EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
        std::vector<std::string> titles;
        for (auto const& line : QString::fromUtf8(process.readAllStandardOutput()).split('\n'))
            if (line.count('\t') == 2) titles.push_back(line.section('\t', 0, 0).toStdString());
        return titles;
    }
    /// Once what was saved has reached the file.
    std::vector<std::string> stored() {
        bool isThere = false;
        dispatch_group_notify(store->saveDispatchGroup(), dispatch_get_main_queue(), [&] { isThere = true; });
        EXPECT_TRUE(QTest::qWaitFor([&] { return isThere; }, patience));
        return notesctl({"list"});
    }
    void scrollToEnd() {
        auto* const bar = part<QTreeView>("notes")->verticalScrollBar();
        ASSERT_TRUE(soon([&] { return bar->maximum() > 0; }));
        bar->setValue(bar->maximum());
    }
    template <class Is> static bool soon(Is is) { return QTest::qWaitFor(is, patience); }
    void import(std::size_t count) {
        bool hasEnded = false;
        auto const import = Import::start(*store, count, {[](std::size_t) {}, [&](bool) { hasEnded = true; }});
        ASSERT_TRUE(soon([&] { return hasEnded && !rows(1).empty(); }));
    }

    TemporaryFolder folder;
    Ref<ManagedObjectStore> store;
    std::vector<QPointer<NotesWindow>> windows;
    NotesWindow* window = nullptr;
};

using Texts = std::vector<std::string>;

} // namespace

TEST_F(NotesWindowTest, WhatIsTypedIsKeptAndEachStepCanBeUndone) {
    press(QKeySequence::New);
    ASSERT_EQ(title(), "New note");
    QTest::keyClicks(part<QLineEdit>("title"), "Plans");
    ASSERT_TRUE(soon([&] { return rows() == Texts{"Plans"}; })) << "typing has paused";
    part<QPlainTextEdit>("text")->setFocus();
    QTest::keyClicks(part<QPlainTextEdit>("text"), "Buy a bridge");
    part<QLineEdit>("tags")->setFocus();
    QTest::keyClicks(part<QLineEdit>("tags"), "town, money");
    ASSERT_TRUE(soon([&] { return notesctl({"list", "brid"}) == Texts{"Plans"}; }));

    press(QKeySequence::Undo);
    EXPECT_TRUE(soon([&] { return text().empty() && textOf(part<QLineEdit>("tags")).empty(); }));
    EXPECT_EQ(title(), "Plans");
    press(QKeySequence::Undo);
    EXPECT_TRUE(soon([&] { return title() == "New note"; }));
    press(QKeySequence::Undo);
    EXPECT_TRUE(soon([&] { return rows().empty(); }));
    EXPECT_EQ(stored(), Texts());
    for (int step = 0; step < 3; ++step) press(QKeySequence("Ctrl+Shift+Z"));
    ASSERT_TRUE(soon([&] { return rows() == Texts{"Plans"}; }));
    click(0);
    EXPECT_EQ(text(), "Buy a bridge");
    EXPECT_EQ(textOf(part<QLineEdit>("tags")), "money, town");
    EXPECT_EQ(stored(), Texts{"Plans"});
}

TEST_F(NotesWindowTest, ASearchFindsAsYouTypeWhatAnotherProcessFinds) {
    import(2000);
    ASSERT_TRUE(soon([&] { return stored().size() == 2000; }));
    auto* const words = part<QLineEdit>("search");
    press(QKeySequence::Find);
    for (auto const* typed : {"zur", "ich no", "te"}) {
        QTest::keyClicks(words, typed);
        auto found = notesctl({"list", words->text()});
        ASSERT_FALSE(found.empty()) << words->text().toStdString();
        found.resize(std::min<std::size_t>(found.size(), 200));
        EXPECT_TRUE(soon([&] { return rows() == found; })) << words->text().toStdString();
    }
    click(3);
    EXPECT_EQ(title(), rows()[3]);
    EXPECT_NE(text().find("note"), std::string::npos);
    words->clear();
    ASSERT_TRUE(soon([&] { return part<QTreeView>("notes")->model()->rowCount() == 200; }));
    scrollToEnd();
    EXPECT_TRUE(soon([&] { return part<QTreeView>("notes")->model()->rowCount() == 2000; }));
}

TEST_F(NotesWindowTest, AnImportIsOneStepAndCanBeCancelled) {
    choose("Import");
    choose("Cancel Import");
    ASSERT_TRUE(
        soon([&] { return !part<QTreeView>("notes")->model()->rowCount() && window->findChild<QProgressBar*>()->isHidden(); }));
    EXPECT_EQ(stored(), Texts());
    import(1200);
    scrollToEnd();
    ASSERT_TRUE(soon([&] { return part<QTreeView>("notes")->model()->rowCount() == 1200; }));
    press(QKeySequence::Undo);
    EXPECT_TRUE(soon([&] { return part<QTreeView>("notes")->model()->rowCount() == 0; }));
    EXPECT_EQ(stored(), Texts());
}

TEST_F(NotesWindowTest, AnotherProcessIsSeenInEveryWindow) {
    notesctl({"add", "Far away", "written elsewhere"});
    ASSERT_TRUE(soon([&] { return rows() == Texts{"Far away"}; }));
    click(0);
    EXPECT_EQ(text(), "written elsewhere");
    auto* const first = std::exchange(window, open());
    click(0);
    notesctl({"edit", "Far away", "and changed there"});
    EXPECT_TRUE(soon([&] { return text() == "and changed there"; }));
    std::swap(window, const_cast<NotesWindow*&>(first));
    EXPECT_TRUE(soon([&] { return text() == "and changed there"; }));
    notesctl({"delete", "Far away"});
    EXPECT_TRUE(soon([&] { return rows().empty() && text().empty(); }));
}

int main(int argc, char** argv) {
    TemporaryFolder const home; // of its preferences
    ::setenv("XDG_CONFIG_HOME", home.path().c_str(), 1);
    QApplication const application(argc, argv);
    QtMainQueue const mainQueue;
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
