#include "Tessarin/store/NSFileManager+Directories.h"

#include "Tessarin/platform/foundation/files/NSFileManager.h"
#include "Tessarin/platform/runtime/Fatal.h"

namespace Tessarin {
namespace {

NSURL folder(NSSearchPathDirectory directory, std::string_view name) {
    auto url = NSFileManager::userDirectory(directory);
    if (!url) fatal("the user has no " + std::string{name} + " folder");
    return *std::move(url);
}

std::string filePath(NSURL const& url) {
    if (!url.isFileURL()) fatal(url.absoluteString() + " has no path in the file system");
    return url.path();
}

} // namespace

std::optional<NSURL> NSFileManagerDirectories::userDirectory(NSSearchPathDirectory directory) {
    auto const paths = NSSearchPathForDirectoriesInDomains(directory, NSSearchPathDomainMask::User);
    if (paths.empty()) return {};
    return NSURL::fileURLWithPath(paths.front());
}

NSURL NSFileManagerDirectories::documentsDirectoryURL() { return folder(NSSearchPathDirectory::Document, "documents"); }
NSURL NSFileManagerDirectories::libraryDirectoryURL() { return folder(NSSearchPathDirectory::Library, "library"); }
NSURL NSFileManagerDirectories::cachesDirectoryURL() { return folder(NSSearchPathDirectory::Caches, "caches"); }
NSURL NSFileManagerDirectories::tempDirectoryURL() { return NSURL::fileURLWithPath(NSTemporaryDirectory()); }
NSURL NSFileManagerDirectories::applicationSupportDirectoryURL() {
    return folder(NSSearchPathDirectory::ApplicationSupport, "application support");
}

bool NSFileManagerDirectories::fileExistsAtURL(NSURL const& url) const {
    return NSFileManager::defaultManager()->fileExistsAtPath(filePath(url));
}

bool NSFileManagerDirectories::directoryExistsAtURL(NSURL const& url) const {
    bool isDirectory = false;
    return NSFileManager::defaultManager()->fileExistsAtPath(filePath(url), isDirectory) && isDirectory;
}

} // namespace Tessarin
