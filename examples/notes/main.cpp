// Notes: what stands between a store and a window. notes [--folder PATH]
#include "NotesWindow.h"

#include <QApplication>
#include <QMessageBox>
#include <Tessarin/integration/qt/QtMainQueue.h>

using namespace Tessarin;

namespace {

void openWindow(Ref<ManagedObjectStore> const& store) {
    (new notes::NotesWindow(store, [store] { openWindow(store); }))->show();
}

} // namespace

int main(int argc, char** argv) {
    QApplication const application(argc, argv);
    QtMainQueue const mainQueue;
    NSBundle::mainBundle()->setBundleIdentifier("org.tessarin.notes");
    NSUserDefaults::registerDefaults({{"fontSize", 11}});

    auto options = notes::storeOptions(notes::folderFrom({argv, argv + argc}));
    auto const opening = ManagedObjectStore::open(std::move(options), [](auto const& store, Ref<NSError> const& error) {
        if (store) return openWindow(store);
        QMessageBox::critical(nullptr, "Notes", QString::fromStdString(error->localizedDescription()));
        QApplication::quit();
    });
    return QApplication::exec();
}
