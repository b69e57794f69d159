#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/files/NSSearchPath.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/foundation/values/NSData.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <optional>
#include <string>
#include <string_view>
#include <vector>
// What other rooms add to file managers:
#include "Tessarin/store/NSFileManager+Directories.h"

namespace Tessarin {

/// What becomes of folders on the way that are missing.
enum class IntermediateDirectories { Create, Require };

// Keys of attributesOfItemAtURL.
inline constexpr std::string_view NSFileType = "NSFileType"; // one of the three texts below, or "NSFileTypeUnknown"
inline constexpr std::string_view NSFileTypeRegular = "NSFileTypeRegular";
inline constexpr std::string_view NSFileTypeDirectory = "NSFileTypeDirectory";
inline constexpr std::string_view NSFileTypeSymbolicLink = "NSFileTypeSymbolicLink";
inline constexpr std::string_view NSFileSize = "NSFileSize";                         // bytes
inline constexpr std::string_view NSFileModificationDate = "NSFileModificationDate"; // a date
inline constexpr std::string_view NSFilePosixPermissions = "NSFilePosixPermissions"; // 0 to 07777

/// Files and folders. Tests answer false when they cannot tell; everything that changes something throws ErrorException
/// with an errno and the path, and what failed half-way stays half done. URLs must be file URLs. Any thread.
///
///     auto const& files = NSFileManager::defaultManager();
///     if (!files->fileExistsAtURL(folder)) files->createDirectoryAtURL(folder);
class TESSARIN_API NSFileManager : public NSObject, public NSFileManagerDirectories {
public:
    static Ref<NSFileManager> const& defaultManager();

    /// True for files and folders alike; a symbolic link counts as what it leads to.
    bool fileExistsAtPath(std::string_view path) const;
    /// The same; tells whether it is a folder when something is there.
    bool fileExistsAtPath(std::string_view path, bool& isDirectory) const;
    bool isReadableFileAtPath(std::string_view path) const;
    bool isWritableFileAtPath(std::string_view path) const;

    /// Does nothing when the folder exists already, unless intermediate ones are required to: then that is an error.
    void createDirectoryAtURL(NSURL const& url, IntermediateDirectories intermediate = IntermediateDirectories::Create) const;
    /// Folders with all they hold; a symbolic link itself. It is an error when nothing is there.
    void removeItemAtURL(NSURL const& url) const;
    /// Folders with all they hold. It is an error when something stands at the destination.
    void copyItemAtURL(NSURL const& source, NSURL const& destination) const;
    void moveItemAtURL(NSURL const& source, NSURL const& destination) const;

    /// What a folder holds, sorted by name, hidden items too.
    std::vector<NSURL> contentsOfDirectoryAtURL(NSURL const& url) const;
    /// The bytes of a file; absent when it cannot be read.
    std::optional<NSData> contentsAtPath(std::string_view path) const;
    /// Type, size, modification date and permissions; of a symbolic link itself.
    Dictionary attributesOfItemAtURL(NSURL const& url) const;

    std::string currentDirectoryPath() const;

    /// The folder shared by the applications of a group: `$XDG_DATA_HOME/group-containers/<identifier>`, when that exists.
    /// Absent too for an identifier that is empty, holds "/" or "..", or is the main bundle's own.
    std::optional<NSURL> containerURLForSecurityApplicationGroupIdentifier(std::string_view identifier) const;

protected:
    NSFileManager() = default;
};

} // namespace Tessarin
