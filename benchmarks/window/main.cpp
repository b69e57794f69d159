// What an application's window costs its main thread: the notes example beside the same list over a QSqlTableModel. Processor time
// of that thread; painted into memory.
#include "benchmarks/support/Report.h"
#include "benchmarks/window/Meter.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "benchmarks/window/TableWindow.h"
#include "examples/notes/NotesWindow.h"
#include "integration/qt/QtMainQueue.h"

#include <QScrollBar>
#include <atomic>
#include <cstdlib>
#include <filesystem>

namespace Tessarin::benchmarks {
namespace {

constexpr std::size_t count = 50'000;
using Cost = MeteredApplication::Cost;

/// One of the two applications, over a file that may exist.
class Shown {
public:
    explicit Shown(MeteredApplication& application) : application_(application) {}
    virtual ~Shown() = default;
    virtual void open() = 0; // until the first rows are painted
    virtual void close() = 0;
    virtual void import() = 0; // until they are in the list and in the file
    virtual void fill() = 0; // the list has all rows, so that it can be scrolled through
    virtual QLineEdit& words() = 0;
    virtual QTreeView& view() = 0;
    virtual void waitForFound() {}

    template <class Work> Cost costOf(Work work) {
        settle();
        application_.take();
        work();
        settle();
        return application_.take();
    }
    /// A key after the other, each until what it finds is painted.
    Cost type(QString const& text) {
        Cost all;
        for (auto const letter : text) {
            auto const cost = costOf([&] {
                QKeyEvent press(QEvent::KeyPress, 0, {}, letter);
                QCoreApplication::sendEvent(&words(), &press);
                waitForFound();
            });
            all = {all.sum + cost.sum, std::max(all.most, cost.most)};
        }
        words().clear();
        settle();
        return all;
    }
    Cost scroll() {
        return costOf([&] {
            auto* const bar = view().verticalScrollBar();
            for (int page = 0; page < 500; ++page) {
                bar->setValue(bar->maximum() / 500 * page);
                settle();
            }
        });
    }

private:
    MeteredApplication& application_;
};

class Ours : public Shown {
public:
    Ours(MeteredApplication& application, std::string folder) : Shown(application), folder_(std::move(folder)) {}

    void open() override {
        ManagedObjectStore::open(notes::storeOptions(folder_), [this](auto const& store, Ref<NSError> const& error) {
            if (error) fatal(error->description());
            store_ = store;
            window_ = new notes::NotesWindow(store, [] {});
            window_->show();
        });
        runUntil([&] { return window_ && view().model(); });
        view().viewport()->repaint();
    }
    void fill() override {
        if (view().model()->rowCount() < static_cast<int>(count)) {
            settle();
            view().verticalScrollBar()->setValue(view().verticalScrollBar()->maximum());
        }
        runUntil([&] { return view().model()->rowCount() == static_cast<int>(count); });
    }
    void close() override {
        delete window_.data();
        bool isClosed = false;
        store_->close([&](auto const&) { isClosed = true; });
        runUntil([&] { return isClosed; });
        store_ = nullptr;
    }
    void import() override {
        std::atomic<bool> isStored{false}; // the next phase begins with a quiet store
        auto const centre = NSNotificationCenter::defaultCenter();
        auto const told = centre->addObserverForName(NSManagedObjectContextDidSaveNotification, store_->privateContext(), nullptr,
                                                    [&](auto const&) { isStored = true; });
        auto const import = notes::Import::start(*store_, count, {[](std::size_t) {}, [](bool) {}});
        runUntil([&] { return isStored && view().model()->rowCount() != 0; });
        centre->removeObserver(*told);
    }
    void waitForFound() override {
        auto* const before = view().model();
        runUntil([&] { return view().model() != before; });
    }
    QLineEdit& words() override { return *window_->findChild<QLineEdit*>("search"); }
    QTreeView& view() override { return *window_->findChild<QTreeView*>("notes"); }

private:
    std::string const folder_;
    Ref<ManagedObjectStore> store_;
    QPointer<notes::NotesWindow> window_;
};

class Theirs : public Shown {
public:
    Theirs(MeteredApplication& application, std::string const& folder)
        : Shown(application), file_(QString::fromStdString(folder + "/table.db")) {}

    void open() override {
        window_ = std::make_unique<TableWindow>(file_);
        window_->show();
        settle();
        view().viewport()->repaint();
    }
    void fill() override {
        while (view().model()->canFetchMore({})) view().model()->fetchMore({});
    }
    void close() override { window_.reset(); }
    void import() override {
        QMetaObject::invokeMethod(
            window_.get(), [this] { window_->import(count); }, Qt::QueuedConnection);
    }
    QLineEdit& words() override { return window_->words(); }
    QTreeView& view() override { return window_->view(); }

private:
    QString const file_;
    std::unique_ptr<TableWindow> window_;
};

struct Phase {
    char const* row;
    double most; // ms an event
    Cost (*run)(Shown& shown);
};
/// In this order: the file is empty first.
Phase const phases[] = {
    {"import of 50,000 with the list open", 8, [](Shown& shown) { return shown.costOf([&] { shown.import(); }); }},
    {"a keystroke in search", 4, [](Shown& shown) { return shown.type("note bridge"); }},
    {"the whole list, at its first rows' end", 0, [](Shown& shown) { return shown.costOf([&] { shown.fill(); }); }},
    {"scrolling through 50,000", 4, [](Shown& shown) { return shown.scroll(); }},
    {"the full store to first rows", 30,
     [](Shown& shown) {
         shown.close();
         return shown.costOf([&] { shown.open(); });
     }},
};

} // namespace
} // namespace Tessarin::benchmarks

int main(int argc, char** argv) {
    using namespace Tessarin::benchmarks;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    auto folder = (std::filesystem::temp_directory_path() / "bench-window-XXXXXX").string();
    if (!mkdtemp(folder.data())) return 1;
    Report report(argc, argv);
    int arguments = 1;
    MeteredApplication application(arguments, argv);
    Tessarin::QtMainQueue const mainQueue;
    {
        Ours ours(application, folder);
        Theirs theirs(application, folder);
        ours.open();
        theirs.open();
        for (auto const& [row, most, run] : phases) {
            auto const here = run(ours), there = run(theirs);
            report.add({.group = "an event",
                        .row = row,
                        .unit = "ms",
                        .ours = here.most,
                        .peer = "QSqlTableModel",
                        .theirs = there.most,
                        .target = most,
                        .bound = Bound::Ours});
            report.add({.group = "the main thread",
                        .row = row,
                        .unit = "ms",
                        .ours = here.sum,
                        .peer = "QSqlTableModel",
                        .theirs = there.sum,
                        .target = most == 0 ? 0 : 0.1});
        }
        ours.close();
        theirs.close();
    }
    std::filesystem::remove_all(folder);
    return report.finish();
}
