#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/files/NSSearchPath.h"
#include <optional>

namespace Tessarin {

class NSURL;

/// The user's standard folders, and tests that take URLs. None of these creates a folder.
///
///     auto const file = NSFileManager::documentsDirectoryURL().URLByAppendingPathComponent("notes.txt");
///     if (NSFileManager::defaultManager()->fileExistsAtURL(file)) open(file);
class TESSARIN_API NSFileManagerDirectories {
    friend class NSFileManager; // only NSFileManager can carry this room
    NSFileManagerDirectories() = default;

public:
    /// The first of the user's folders of that kind; absent when there is none.
    static std::optional<NSURL> userDirectory(NSSearchPathDirectory directory);

    // Fatal when the system names no such folder.
    static NSURL documentsDirectoryURL();
    static NSURL libraryDirectoryURL();
    static NSURL applicationSupportDirectoryURL(); // it may not exist yet
    static NSURL cachesDirectoryURL();
    static NSURL tempDirectoryURL();

    /// True for files and folders alike. Fatal for a URL that is not of a file.
    bool fileExistsAtURL(NSURL const& url) const;
    /// True when a folder exists there. Fatal for a URL that is not of a file.
    bool directoryExistsAtURL(NSURL const& url) const;

protected:
    ~NSFileManagerDirectories() = default;
};

} // namespace Tessarin
